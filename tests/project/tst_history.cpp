#include "project/history.h"
#include "project/historycommand.h"
#include "project/project.h"

#include <QSignalSpy>
#include <QTest>
#include <QUndoStack>

using namespace OVProject;

namespace {
// Sets the project's title; fails (changing nothing) when the title is not what it left.
class TitleCommand : public HistoryCommand
{
public:
    TitleCommand(History *h, const QString &from, const QString &to)
        : HistoryCommand(h, QStringLiteral("Title %1").arg(to))
        , m_from(from)
        , m_to(to)
    {
    }

protected:
    bool apply(bool forward) override
    {
        if (project()->title() != (forward ? m_from : m_to))
            return false;
        project()->setTitle(forward ? m_to : m_from);
        return true;
    }

private:
    QString m_from;
    QString m_to;
};
} // namespace

// The document's modified mark is the history's clean state: these scripts follow it through
// pushes, undo, redo, saves of the current and of an earlier state, gestures and failures.
class TstHistory : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void cleanStateFollowsTheSavedState_data();
    void cleanStateFollowsTheSavedState();
};

void TstHistory::cleanStateFollowsTheSavedState_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("clean");
    // p push, u undo, r redo, s save now, m mark (a save starts), S the marked save ends,
    // g/G gesture begin/end, x the title changes behind the history's back, c clear.
    QTest::newRow("fresh document is clean") << "" << "";
    QTest::newRow("undo back to the save") << "pspu" << "0101";
    QTest::newRow("undo past the save and redo") << "ppsuurr" << "0010001";
    QTest::newRow("save ends after more steps") << "pmpS" << "0000";
    QTest::newRow("marked state reached by undo") << "pmpSu" << "00001";
    QTest::newRow("saved step replaced by a new one") << "ppsup" << "00100";
    QTest::newRow("saved step replaced, then undo below") << "ppsupu" << "001000";
    QTest::newRow("save with nothing pushed, push, undo") << "spu" << "101";
    QTest::newRow("gesture is one step") << "sgppGu" << "110001";
    QTest::newRow("save during a gesture is not clean") << "gpsGu" << "10000";
    QTest::newRow("failed undo of the saved step drops it") << "psxur" << "01100";
    QTest::newRow("clear makes the present clean") << "ppc" << "001";
    QTest::newRow("a mark from before a clear never matches") << "pmcpuS" << "001010";
}

void TstHistory::cleanStateFollowsTheSavedState()
{
    QFETCH(QString, script);
    QFETCH(QString, clean);
    Project project;
    History *h = project.history();
    QSignalSpy cleanChanged(h, &History::cleanChanged);
    History::Mark mark;
    int n = 0;
    QString seen;
    for (const QChar op : script) {
        switch (op.toLatin1()) {
        case 'p': {
            const QString from = project.title();
            QVERIFY(h->push(new TitleCommand(h, from, QString::number(++n))));
            break;
        }
        case 'u':
            h->undo();
            break;
        case 'r':
            h->redo();
            break;
        case 's':
            h->setClean();
            break;
        case 'm':
            mark = h->mark();
            break;
        case 'S':
            h->setClean(mark);
            break;
        case 'g':
            h->beginGesture(QStringLiteral("gesture"));
            break;
        case 'G':
            h->endGesture();
            break;
        case 'x': // the next undo finds the title changed and fails
            project.setTitle(QStringLiteral("elsewhere"));
            seen += h->isClean() ? u'1' : u'0';
            continue;
        case 'c':
            h->clear();
            break;
        }
        seen += h->isClean() ? u'1' : u'0';
    }
    QCOMPARE(seen, clean);
    // Every change of the state was announced, and only changes.
    bool last = true;
    int changes = 0;
    for (const QChar c : clean) {
        changes += (c == u'1') != last;
        last = c == u'1';
    }
    QCOMPARE(cleanChanged.size(), changes);
}

QTEST_GUILESS_MAIN(TstHistory)
#include "tst_history.moc"
