#include "project/history.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/utterance.h"
#include "transcript/ovtranscriber.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptloop.h"
#include "transcript/ovtranscriptmodel.h"

#include <QSignalSpy>
#include <QTest>

using namespace OVProject;

namespace {
// "speaker:start-end:text" for every utterance of the timeline, by start.
QStringList utteranceList(const Timeline *t)
{
    QList<const Utterance *> list(t->utterances().cbegin(), t->utterances().cend());
    std::stable_sort(list.begin(), list.end(), [](auto a, auto b) { return a->startTime() < b->startTime(); });
    QStringList out;
    for (const Utterance *u : list)
        out << QStringLiteral("%1:%2-%3:%4").arg(u->speaker(), QString::number(u->startTime(), 'g', 12),
                                                 QString::number(u->endTime(), 'g', 12), u->text());
    return out;
}

// Rows given as "speaker start end text".
void addUtterances(Timeline *t, const QStringList &rows)
{
    int n = 0;
    for (const QString &row : rows) {
        const QStringList f = row.split(QLatin1Char(' '));
        auto *u = new Utterance(QStringLiteral("u%1").arg(n++));
        u->setSpeaker(f.at(0));
        u->setStartTime(f.at(1).toDouble());
        u->setEndTime(f.at(2).toDouble());
        u->setText(f.mid(3).join(QLatin1Char(' ')));
        t->addUtterance(u);
    }
}
} // namespace

class TstTranscriptView : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sharedKeyDecidesByState_data();
    void sharedKeyDecidesByState();
    void loopWindowStaysInRecording_data();
    void loopWindowStaysInRecording();
    void highlightFollowsPosition_data();
    void highlightFollowsPosition();
    void editInTableIsUndoable();
    void wrapsAtTextWidth_data();
    void wrapsAtTextWidth();
};

void TstTranscriptView::sharedKeyDecidesByState_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("steps"); // "pos:what[:draft]" with what = key, start, finish or undo
    QTest::addColumn<QStringList>("outcomes");
    QTest::addColumn<QStringList>("utterances");

    QTest::newRow("key starts, key finishes") << true << "10:key;12.5:key:hello there" << QStringList{ "started", "finished" }
                                              << QStringList{ "Speaker 1:10-12.5:hello there" };
    QTest::newRow("finish with nothing open") << true << "5:finish" << QStringList{ "nothing" } << QStringList{};
    QTest::newRow("start while writing closes the first")
        << true << "1:start;3:start:first;4:key:second" << QStringList{ "started", "started", "finished" }
        << QStringList{ "Speaker 1:1-3:first", "Speaker 1:3-4:second" };
    QTest::newRow("looped back before the start") << true << "10:key;8:key:again" << QStringList{ "started", "finished" }
                                                  << QStringList{ "Speaker 1:8-10:again" };
    QTest::newRow("paused: at least the minimum") << true << "10:key;10:key:x" << QStringList{ "started", "finished" }
                                                  << QStringList{ "Speaker 1:10-10.1:x" };
    QTest::newRow("undoing the start ends the writing") << true << "10:key;11:undo;12:key" << QStringList{ "started", "-", "started" }
                                                        << QStringList{ "Speaker 1:12-12:" };
    QTest::newRow("transcribing off") << false << "10:key" << QStringList{ "off" } << QStringList{};
}

void TstTranscriptView::sharedKeyDecidesByState()
{
    QFETCH(bool, enabled);
    QFETCH(QString, steps);
    QFETCH(QStringList, outcomes);
    QFETCH(QStringList, utterances);

    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    project.setVideoLength(600);
    OVTranscriptHistory requests;
    requests.setProject(&project);
    OVTranscriber transcriber(&requests);
    transcriber.setProject(&project);
    transcriber.setEnabled(enabled);
    QSignalSpy writing(&transcriber, &OVTranscriber::writingChanged);

    const QStringList list = steps.split(QLatin1Char(';'));
    QCOMPARE(list.size(), outcomes.size());
    for (int i = 0; i < list.size(); ++i) {
        const QStringList f = list.at(i).split(QLatin1Char(':'));
        project.state()->setCurrentPos(f.at(0).toDouble());
        if (f.size() > 2)
            transcriber.setDraft(f.at(2));
        const QString what = f.at(1);
        if (what == QLatin1String("undo")) {
            QVERIFY(project.history()->undo());
            QVERIFY(!transcriber.isWriting());
            QCOMPARE(writing.last().at(0).toBool(), false);
            continue;
        }
        const OVTranscriber::Result r = what == QLatin1String("key") ? transcriber.startOrFinish()
            : what == QLatin1String("start")                          ? transcriber.start()
                                                                      : transcriber.finish();
        static const QHash<int, QString> names{ { OVTranscriber::Started, "started" }, { OVTranscriber::Finished, "finished" },
                                                { OVTranscriber::NothingOpen, "nothing" }, { OVTranscriber::NotEnabled, "off" } };
        QCOMPARE(names.value(r.outcome, QStringLiteral("other")), outcomes.at(i));
        QCOMPARE(r.message.isEmpty(), r.changed());
        QCOMPARE(transcriber.isWriting(), r.outcome == OVTranscriber::Started || (!r.changed() && transcriber.isWriting()));
    }
    QCOMPARE(utteranceList(t), utterances);
    QCOMPARE(OVTranscriptHistory::checkConsistency(&project), QString());
}

void TstTranscriptView::loopWindowStaysInRecording_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<double>("a");
    QTest::addColumn<double>("b"); // length, or the utterance's end, or the steps
    QTest::addColumn<double>("duration");
    QTest::addColumn<double>("wantStart");
    QTest::addColumn<double>("wantEnd");

    QTest::newRow("around, mid recording") << "around" << 30.0 << 5.0 << 60.0 << 27.5 << 32.5;
    QTest::newRow("around, at the start") << "around" << 1.0 << 5.0 << 60.0 << 0.0 << 5.0;
    QTest::newRow("around, at the end") << "around" << 59.0 << 5.0 << 60.0 << 55.0 << 60.0;
    QTest::newRow("around, recording shorter") << "around" << 1.0 << 5.0 << 3.0 << 0.0 << 3.0;
    QTest::newRow("around, length below minimum") << "around" << 10.0 << 0.2 << 60.0 << 9.5 << 10.5;
    QTest::newRow("around, duration not known") << "around" << 100.0 << 4.0 << 0.0 << 98.0 << 102.0;
    QTest::newRow("utterance") << "span" << 12.0 << 15.5 << 60.0 << 12.0 << 15.5;
    QTest::newRow("short utterance widened") << "span" << 10.0 << 10.2 << 60.0 << 9.6 << 10.6;
    QTest::newRow("utterance at the end") << "span" << 59.8 << 59.9 << 60.0 << 59.0 << 60.0;
    QTest::newRow("advance forward") << "advance" << 10.0 << 1.0 << 60.0 << 15.0 << 20.0;
    QTest::newRow("advance two back") << "advance" << 20.0 << -2.0 << 60.0 << 10.0 << 15.0;
    QTest::newRow("advance past the end") << "advance" << 53.0 << 1.0 << 60.0 << 55.0 << 60.0;
    QTest::newRow("advance before the start") << "advance" << 2.0 << -1.0 << 60.0 << 0.0 << 5.0;
}

void TstTranscriptView::loopWindowStaysInRecording()
{
    QFETCH(QString, how);
    QFETCH(double, a);
    QFETCH(double, b);
    QFETCH(double, duration);
    QFETCH(double, wantStart);
    QFETCH(double, wantEnd);

    OVTranscriptLoop::Window w;
    if (how == QLatin1String("around"))
        w = OVTranscriptLoop::around(a, b, duration);
    else if (how == QLatin1String("span"))
        w = OVTranscriptLoop::spanning(a, b, duration);
    else
        w = OVTranscriptLoop::advanced(OVTranscriptLoop::Window{ a, a + 5.0 }, int(b), duration);
    QVERIFY2(qAbs(w.start - wantStart) < 1e-9 && qAbs(w.end - wantEnd) < 1e-9,
             qPrintable(QStringLiteral("%1-%2").arg(w.start).arg(w.end)));
}

void TstTranscriptView::highlightFollowsPosition_data()
{
    QTest::addColumn<QStringList>("utterances");
    QTest::addColumn<QString>("hide"); // "u<n>" an utterance, "+row" one more utterance, else a speaker
    QTest::addColumn<QString>("filter");
    QTest::addColumn<double>("position");
    QTest::addColumn<QStringList>("highlighted"); // texts, in table order
    QTest::addColumn<QString>("follow"); // text of the row kept in view

    const QStringList talk{ "ann 0 4 one", "bob 3 6 two", "ann 7 9 three", "bob 10 11 four" };
    QTest::newRow("inside one") << talk << QString() << QString() << 1.0 << QStringList{ "one" } << "one";
    QTest::newRow("overlap") << talk << QString() << QString() << 3.5 << QStringList{ "one", "two" } << "two";
    QTest::newRow("end is outside") << talk << QString() << QString() << 4.0 << QStringList{ "two" } << "two";
    QTest::newRow("gap keeps the last one in view") << talk << QString() << QString() << 6.5 << QStringList{} << "two";
    QTest::newRow("before the first") << QStringList{ "ann 2 4 one" } << QString() << QString() << 1.0 << QStringList{} << "one";
    QTest::newRow("a long one begun early")
        << QStringList{ "ann 0 100 long", "bob 1 2 a", "bob 3 4 b", "bob 50 51 c" } << QString() << QString() << 60.0
        << QStringList{ "long" } << "c";
    QTest::newRow("hidden utterance") << talk << "u0" << QString() << 3.5 << QStringList{ "two" } << "two";
    QTest::newRow("hidden speaker") << talk << "bob" << QString() << 3.5 << QStringList{ "one" } << "one";
    QTest::newRow("one added in between") << talk << "+bob 5 6.6 added" << QString() << 6.5 << QStringList{ "added" } << "added";
    QTest::newRow("filtered speaker") << talk << QString() << "ann" << 5.0 << QStringList{} << "one";
}

void TstTranscriptView::highlightFollowsPosition()
{
    QFETCH(QStringList, utterances);
    QFETCH(QString, hide);
    QFETCH(QString, filter);
    QFETCH(double, position);
    QFETCH(QStringList, highlighted);
    QFETCH(QString, follow);

    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    addUtterances(t, utterances);
    OVTranscriptModel model;
    model.setProject(&project);
    // Hiding after the model is set: the table must follow the announcement.
    if (hide.startsWith(QLatin1Char('+'))) {
        auto *u = new Utterance(QStringLiteral("extra"));
        const QStringList f = hide.mid(1).split(QLatin1Char(' '));
        u->setSpeaker(f.at(0));
        u->setStartTime(f.at(1).toDouble());
        u->setEndTime(f.at(2).toDouble());
        u->setText(f.at(3));
        t->addUtterance(u);
    } else if (hide.startsWith(QLatin1Char('u')))
        t->setUtteranceHidden(hide, true);
    else if (!hide.isEmpty())
        t->setUtteranceUserHidden(hide, true);
    if (!filter.isEmpty())
        model.setSpeakerFilter({ filter });
    project.state()->setCurrentPos(position);

    QStringList texts;
    for (int row : model.highlightedRows()) {
        texts << model.utterance(row)->text();
        QVERIFY(model.index(row, OVTranscriptModel::TextColumn).data(OVTranscriptModel::HighlightedRole).toBool());
    }
    QCOMPARE(texts, highlighted);
    QCOMPARE(model.utterance(model.followRow())->text(), follow);
    for (int row = 1; row < model.rowCount(); ++row)
        QVERIFY(model.utterance(row - 1)->startTime() <= model.utterance(row)->startTime());
    // What the table shows is what a table built afresh would show.
    OVTranscriptModel fresh;
    fresh.setProject(&project);
    fresh.setSpeakerFilter(model.speakerFilter());
    QCOMPARE(model.rowCount(), fresh.rowCount());
    for (int row = 0; row < model.rowCount(); ++row)
        QCOMPARE(model.index(row, OVTranscriptModel::TextColumn).data(), fresh.index(row, OVTranscriptModel::TextColumn).data());
}

void TstTranscriptView::editInTableIsUndoable()
{
    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    addUtterances(t, { "ann 5 6 later", "bob 1 2 first words" });
    OVTranscriptHistory requests;
    requests.setProject(&project);
    OVTranscriptModel model;
    model.setProject(&project);
    model.setRequests(&requests);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);

    const QModelIndex cell = model.index(0, OVTranscriptModel::TextColumn);
    QCOMPARE(cell.data(Qt::EditRole).toString(), QStringLiteral("first words"));
    QVERIFY(model.flags(cell) & Qt::ItemIsEditable);
    QVERIFY(model.setData(cell, QStringLiteral("first, corrected")));
    QCOMPARE(t->utterance(QStringLiteral("u1"))->text(), QStringLiteral("first, corrected"));
    QCOMPARE(cell.data().toString(), QStringLiteral("first, corrected"));
    QVERIFY(!project.history()->isClean());
    // An edit in place keeps the rows (and an open editor) where they are.
    QCOMPARE(reset.count(), 0);
    QVERIFY(!changed.isEmpty());

    QVERIFY(project.history()->undo());
    QCOMPARE(model.index(0, OVTranscriptModel::TextColumn).data().toString(), QStringLiteral("first words"));
    QVERIFY(project.history()->isClean());
    QVERIFY(project.history()->redo());
    QCOMPARE(model.index(0, OVTranscriptModel::TextColumn).data().toString(), QStringLiteral("first, corrected"));
    QCOMPARE(model.utterance(1)->text(), QStringLiteral("later"));
    // Times and speakers are not edited in the table.
    QVERIFY(!model.setData(model.index(0, OVTranscriptModel::StartColumn), 3.0));
}

void TstTranscriptView::wrapsAtTextWidth_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("wrapped");
    QTest::newRow("fits") << "short text" << 80 << "short text";
    QTest::newRow("at spaces") << "one two three four" << 9 << "one two\nthree\nfour";
    QTest::newRow("long word cut") << "abcdefghij xy" << 4 << "abcd\nefgh\nij\nxy";
    QTest::newRow("own breaks kept") << "aa bb\ncc dd ee" << 5 << "aa bb\ncc dd\nee";
    QTest::newRow("no limit") << "one two three" << int(Project::NoTextWidthLimit) << "one two three";
}

void TstTranscriptView::wrapsAtTextWidth()
{
    QFETCH(QString, text);
    QFETCH(int, width);
    QFETCH(QString, wrapped);
    QCOMPARE(OVTranscriptModel::wrapText(text, width), wrapped);
}

QTEST_MAIN(TstTranscriptView)
#include "tst_transcriptview.moc"
