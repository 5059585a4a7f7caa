#include "project/history.h"
#include "project/ovprojectjournal.h"
#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "transcript/ovtranscriber.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptloop.h"
#include "transcript/ovtranscriptmodel.h"
#include "transcript/ovtranscriptview.h"

#include <QHeaderView>
#include <QSignalSpy>
#include <QTemporaryDir>
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
    void typedTextIsInModelAsOneStep_data();
    void typedTextIsInModelAsOneStep();
    void loopWindowStaysInRecording_data();
    void loopWindowStaysInRecording();
    void highlightFollowsPosition_data();
    void highlightFollowsPosition();
    void speakerSetChangesWithoutReset_data();
    void speakerSetChangesWithoutReset();
    void editInTableIsUndoable();
    void rowsAsTallAsTheirText_data();
    void rowsAsTallAsTheirText();
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

void TstTranscriptView::typedTextIsInModelAsOneStep_data()
{
    QTest::addColumn<QString>("steps"); // "k:<text so far>" a key, "save", "edit" another utterance
    QTest::addColumn<int>("newSteps");
    QTest::addColumn<QString>("afterUndo");

    QTest::newRow("keys of one utterance") << "k:h;k:he;k:hel;k:hell" << 1 << "";
    QTest::newRow("keys after a save") << "k:h;save;k:hi" << 1 << "";
    QTest::newRow("another change between keys") << "k:a;edit;k:ab;k:abc" << 3 << "a";
    QTest::newRow("typed and rubbed out") << "k:x;k:xy;k:x" << 1 << "";
}

void TstTranscriptView::typedTextIsInModelAsOneStep()
{
    QFETCH(QString, steps);
    QFETCH(int, newSteps);
    QFETCH(QString, afterUndo);

    QTemporaryDir dir;
    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    addUtterances(t, { "bob 1 2 earlier" });
    OVProjectJournal journal;
    const QString journalPath = dir.filePath(QStringLiteral("journal.kvj"));
    QVERIFY(journal.start(journalPath, &project, QString(), true).isOk());
    OVTranscriptHistory requests;
    requests.setProject(&project);
    OVTranscriber transcriber(&requests);
    transcriber.setProject(&project);
    transcriber.setEnabled(true);
    project.state()->setCurrentPos(10.0);
    QVERIFY(transcriber.startOrFinish().changed());
    Utterance *open = transcriber.openUtterance();
    QVERIFY(open);
    const int before = project.history()->count();

    for (const QString &step : steps.split(QLatin1Char(';'))) {
        if (step == QLatin1String("save")) {
            project.history()->setClean();
        } else if (step == QLatin1String("edit")) {
            QVERIFY(requests.setUtteranceText(t->utterance(QStringLiteral("u0")), QStringLiteral("edited")));
        } else {
            const QString text = step.mid(2);
            QVERIFY(transcriber.setDraft(text));
            // Every key is in the model at once, not only when the utterance is finished.
            QCOMPARE(open->text(), text);
        }
    }
    QCOMPARE(project.history()->count() - before, newSteps);
    QVERIFY(!project.history()->isClean());

    // What a killed session leaves behind holds the line being typed.
    Project back;
    QVERIFY(OVProjectJournal::recover(journalPath, &back).isOk());
    const Timeline *backTimeline = back.timelineGroup()->timeline(t->id());
    QVERIFY(backTimeline);
    const Utterance *recovered = backTimeline->utterance(open->id());
    QVERIFY(recovered);
    QCOMPARE(recovered->text(), open->text());
    // ...and the recovered session writes on in it: the key finishes it, not a new one.
    {
        OVTranscriptHistory backRequests;
        backRequests.setProject(&back);
        OVTranscriber resumed(&backRequests);
        resumed.setProject(&back);
        resumed.setEnabled(true);
        QVERIFY(resumed.isWriting());
        QCOMPARE(resumed.draft(), open->text());
        back.state()->setCurrentPos(14.0);
        QCOMPARE(resumed.startOrFinish().outcome, OVTranscriber::Finished);
        QCOMPARE(recovered->endTime(), 14.0);
        QCOMPARE(backTimeline->utterances().size(), t->utterances().size());
    }

    QSignalSpy draft(&transcriber, &OVTranscriber::draftChanged);
    QVERIFY(project.history()->undo());
    QVERIFY(transcriber.isWriting());
    QCOMPARE(open->text(), afterUndo);
    QCOMPARE(transcriber.draft(), afterUndo);
    QCOMPARE(draft.size(), 1);
    QCOMPARE(draft.first().at(0).toString(), afterUndo);
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

void TstTranscriptView::speakerSetChangesWithoutReset_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QStringList>("speakers");

    QTest::newRow("new speaker first in order") << "add aaron" << QStringList{ "aaron", "ann", "bob", "cy" };
    QTest::newRow("last utterance of a speaker removed") << "remove u3" << QStringList{ "ann", "bob" };
    QTest::newRow("speaker renamed") << "rename u1 zed" << QStringList{ "ann", "bob", "cy", "zed" };
}

void TstTranscriptView::speakerSetChangesWithoutReset()
{
    QFETCH(QString, change);
    QFETCH(QStringList, speakers);

    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    addUtterances(t, { "ann 0 4 one", "bob 3 6 two", "ann 7 9 three", "cy 10 11 four", "bob 12 13 five" });
    OVTranscriptHistory requests;
    requests.setProject(&project);
    OVTranscriptModel model;
    model.setProject(&project);
    QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
    QSignalSpy speakersChanged(&model, &OVTranscriptModel::speakersChanged);

    const QStringList f = change.split(QLatin1Char(' '));
    if (f.at(0) == QLatin1String("add"))
        QVERIFY(requests.addUtterance(t, 5.0, 5.5, f.at(1), QStringLiteral("new")));
    else if (f.at(0) == QLatin1String("remove"))
        QVERIFY(requests.removeUtterances({ t->utterance(f.at(1)) }));
    else if (f.at(0) == QLatin1String("rename")) {
        Utterance *u = t->utterance(f.at(1));
        QVERIFY(requests.editUtterance(u, u->startTime(), u->endTime(), f.at(2), u->text()));
    }

    // A long transcript laid out anew for a speaker more or less loses the scroll and an open editor.
    QCOMPARE(reset.size(), 0);
    QCOMPARE(model.speakers(), speakers);
    QCOMPARE(speakersChanged.size(), 1);
    OVTranscriptModel fresh;
    fresh.setProject(&project);
    QCOMPARE(model.rowCount(), fresh.rowCount());
    for (int row = 0; row < model.rowCount(); ++row) {
        for (int column : { int(OVTranscriptModel::SpeakerColumn), int(OVTranscriptModel::TextColumn) }) {
            QCOMPARE(model.index(row, column).data(), fresh.index(row, column).data());
            QCOMPARE(model.index(row, column).data(Qt::BackgroundRole), fresh.index(row, column).data(Qt::BackgroundRole));
        }
    }
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

void TstTranscriptView::rowsAsTallAsTheirText_data()
{
    QTest::addColumn<int>("count");
    // Few rows are sized one by one, many in one pass.
    QTest::newRow("a few rows") << 4;
    QTest::newRow("many rows") << 240;
}

void TstTranscriptView::rowsAsTallAsTheirText()
{
    QFETCH(int, count);
    const QString latin = QStringLiteral("so we went back there and looked again ").repeated(6);
    const QString greek = QStringLiteral("και πήγαμε πάλι εκεί να δούμε ").repeated(6);
    const QString devanagari = QStringLiteral("हम फिर वहाँ गए और देखा ").repeated(8);
    QStringList rows;
    for (int i = 0; i < count; ++i) {
        const QString &text = i % 4 == 0 ? latin : i % 4 == 1 ? greek : i % 4 == 2 ? devanagari : QStringLiteral("yes");
        rows << QStringLiteral("s%1 %2 %3 %4").arg(i % 3).arg(i * 2).arg(i * 2 + 1).arg(text);
    }
    Project project;
    Timeline *t = project.startNew(QStringLiteral("alice"));
    addUtterances(t, rows);
    OVTranscriptHistory requests;
    requests.setProject(&project);
    OVTranscriptView view;
    view.setRequests(&requests);
    view.resize(600, 400);
    view.setProject(&project);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));

    const int oneLine = view.fontMetrics().lineSpacing() + 8;
    const auto check = [&] {
        for (int row = 0; row < view.transcriptModel()->rowCount(); ++row) {
            const int height = view.rowHeight(row);
            QVERIFY2(height == view.sizeHintForRow(row), qPrintable(QStringLiteral("row %1: %2 high, %3 wanted, column %4: %5").arg(row).arg(height).arg(view.sizeHintForRow(row)).arg(view.columnWidth(3)).arg(view.transcriptModel()->utterance(row)->text().left(20))));
            const QString text = view.transcriptModel()->utterance(row)->text();
            // Each long text needs several lines in a column narrower than the window, and none
            // may be cut off.
            QVERIFY2(text.size() > 100 ? height >= 3 * oneLine - 16 : height == oneLine, qPrintable(text));
            const QString shown = view.transcriptModel()->index(row, OVTranscriptModel::TextColumn).data().toString();
            const QRect laidOut = view.fontMetrics().boundingRect(
                QRect(0, 0, view.columnWidth(OVTranscriptModel::TextColumn) - 8, 100000), Qt::TextWordWrap, shown);
            QVERIFY2(laidOut.height() <= height - 8, qPrintable(QStringLiteral("row %1: %2 high for text %3 high").arg(row).arg(height).arg(laidOut.height())));
        }
    };
    check();
    // A text typed longer grows its row; a new speaker leaves every other row as it was.
    Utterance *shortOne = t->utterance(QStringLiteral("u3"));
    QVERIFY(requests.setUtteranceText(shortOne, latin));
    QVERIFY(requests.addUtterance(t, 0.5, 0.7, QStringLiteral("newcomer"), QStringLiteral("hi")));
    check();
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
