#include "project/history.h"
#include "project/project.h"
#include "project/timeline.h"
#include "project/utterance.h"
#include "transcript/ovtranscripthistory.h"

#include <QSignalSpy>
#include <QTest>

using namespace OVProject;
using Data = OVTranscriptHistory::UtteranceData;

// Every transcript step through the project's history, the model re-checked after each undo
// and redo.
class TstTranscriptHistory : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void stepsUndoRedo_data();
    void stepsUndoRedo();
    void refusedRequestsChangeNothing();
    void replaceRefusedWhenModelParted();

private:
    static QString state(const Timeline *t)
    {
        QStringList out;
        for (const Utterance *u : t->utterances())
            out << QStringLiteral("%1|%2|%3|%4|%5")
                       .arg(u->id(), u->speaker(), u->text(), QString::number(u->startTime(), 'g', 17),
                           QString::number(u->endTime(), 'g', 17));
        return out.join(QLatin1Char('\n'));
    }
    static void checked(const Project *p)
    {
        const QString problem = OVTranscriptHistory::checkConsistency(p);
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
};

void TstTranscriptHistory::stepsUndoRedo_data()
{
    QTest::addColumn<QString>("step");
    QTest::newRow("add") << "add";
    QTest::newRow("edit") << "edit";
    QTest::newRow("remove middle and last") << "remove";
    QTest::newRow("import") << "import";
    QTest::newRow("clear") << "clear";
}

void TstTranscriptHistory::stepsUndoRedo()
{
    QFETCH(QString, step);
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    OVTranscriptHistory h;
    h.setProject(&p);
    for (int i = 0; i < 4; ++i)
        QVERIFY(h.addUtterance(t, i * 2.0, i * 2.0 + 1.5, i % 2 ? QStringLiteral("Bob") : QStringLiteral("Ana"),
            QStringLiteral("line %1").arg(i)));
    p.history()->setClean();
    QVERIFY(p.history()->isClean());
    const QString before = state(t);
    QSignalSpy changed(t, &Timeline::utterancesChanged);

    if (step == QLatin1String("add")) {
        QVERIFY(h.addUtterance(t, 1.0, 1.0, QStringLiteral("Ana")));
    } else if (step == QLatin1String("edit")) {
        QVERIFY(h.editUtterance(t->utterances().at(1), 2.5, 3.25, QStringLiteral("Čeněk"), QStringLiteral("new")));
    } else if (step == QLatin1String("remove")) {
        QVERIFY(h.removeUtterances({ t->utterances().at(3), t->utterances().at(1) }));
        QCOMPARE(t->utterances().size(), 2);
    } else if (step == QLatin1String("import")) {
        // Ids from the file clash with each other: the second must not take the first's id.
        QVERIFY(h.replaceUtterances(t, { Data { QStringLiteral("x"), QStringLiteral("S"), QStringLiteral("a"), 0, 1 },
                                        Data { QStringLiteral("x"), QStringLiteral("S"), QStringLiteral("b"), 1, 2 },
                                        Data { {}, QStringLiteral("T"), QStringLiteral("c"), 2, 3 } },
            QStringLiteral("Import")));
        QCOMPARE(t->utterances().size(), 3);
        QCOMPARE(changed.count(), 1);
    } else {
        QVERIFY(h.clearTranscript(t));
        QVERIFY(t->utterances().isEmpty());
    }
    checked(&p);
    QVERIFY(!p.history()->isClean());
    const QString after = state(t);
    QVERIFY(after != before);

    QVERIFY(p.history()->undo());
    checked(&p);
    QCOMPARE(state(t), before);
    QVERIFY(p.history()->isClean());
    QVERIFY(p.history()->redo());
    checked(&p);
    QCOMPARE(state(t), after);
    QVERIFY(p.history()->undo());
    QCOMPARE(state(t), before);
}

void TstTranscriptHistory::refusedRequestsChangeNothing()
{
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    Project other;
    Timeline *foreign = other.startNew(QStringLiteral("bob"));
    OVTranscriptHistory h;
    h.setProject(&p);
    Utterance *u = h.addUtterance(t, 1.0, 2.0, QStringLiteral("Ana"));
    QVERIFY(u);
    p.history()->setClean();
    const int steps = p.history()->count();

    QVERIFY(!h.addUtterance(t, 3.0, 2.0, QStringLiteral("Ana")));
    QVERIFY(!h.addUtterance(t, qQNaN(), 2.0, QStringLiteral("Ana")));
    QVERIFY(!h.addUtterance(t, -1.0, 2.0, QStringLiteral("Ana")));
    QVERIFY(!h.addUtterance(foreign, 1.0, 2.0, QStringLiteral("Ana")));
    QVERIFY(!h.editUtterance(u, 5.0, 4.0, QStringLiteral("Ana"), QString()));
    QVERIFY(!h.removeUtterances({}));
    QVERIFY(!h.replaceUtterances(t, { Data { {}, QStringLiteral("S"), QStringLiteral("a"), 2, 1 } }, QStringLiteral("Import")));
    // An edit to the same values is no step.
    QVERIFY(h.editUtterance(u, 1.0, 2.0, QStringLiteral("Ana"), QString()));

    QCOMPARE(p.history()->count(), steps);
    QVERIFY(p.history()->isClean());
    QCOMPARE(t->utterances().size(), 1);
    QVERIFY(foreign->utterances().isEmpty());
}

void TstTranscriptHistory::replaceRefusedWhenModelParted()
{
    Project p;
    Timeline *t = p.startNew(QStringLiteral("alice"));
    OVTranscriptHistory h;
    h.setProject(&p);
    QVERIFY(h.addUtterance(t, 1.0, 2.0, QStringLiteral("Ana")));
    QVERIFY(h.replaceUtterances(t, { Data { {}, QStringLiteral("S"), QStringLiteral("a"), 0, 1 } }, QStringLiteral("Import")));
    // Something outside the history changes the transcript: undoing the import must not throw
    // that change away silently.
    auto *stray = new Utterance(BaseNode::newId());
    t->addUtterance(stray);
    QSignalSpy failed(p.history(), &History::stepFailed);
    p.history()->undo();
    QCOMPARE(failed.count(), 1);
    QCOMPARE(t->utterances().size(), 2);
    QVERIFY(t->utterances().contains(stray));
}

QTEST_GUILESS_MAIN(TstTranscriptHistory)
#include "tst_transcripthistory.moc"
