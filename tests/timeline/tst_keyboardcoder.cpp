#include "timelinefixture.h"

#include "project/history.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovtimelinehistory.h"

#include <QSignalSpy>
#include <QTest>

using namespace OVProject;
using namespace TimelineFixture;

// The coding rule without any widget: what each press does and, when it does nothing, what it
// tells the user.
class TstKeyboardCoder : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void pressesSayWhatTheyDid_data();
    void pressesSayWhatTheyDid();
};

void TstKeyboardCoder::pressesSayWhatTheyDid_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<double>("videoLength");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("presses"); // "pos:key;..."
    QTest::addColumn<QStringList>("outcomes"); // one per press
    QTest::addColumn<QStringList>("segments");
    QTest::addColumn<QString>("lastMessage");

    const QString none;
    QTest::newRow("double press opens and closes") << 2 << 600.0 << true << "10:a;20:A" << QStringList{ "opened", "closed" }
                                                   << QStringList{ "0:10-20" } << none;
    QTest::newRow("paused press closes at its own start") << 2 << 600.0 << true << "10:A;10:A" << QStringList{ "opened", "closed" }
                                                          << QStringList{ "0:10-10" } << none;
    QTest::newRow("single press inside a segment") << 1 << 600.0 << true << "10:B;11.5:B" << QStringList{ "created", "inside" }
                                                   << QStringList{ "1:10-12" }
                                                   << "Nothing coded: \"Label 2\" already has a segment at 00:00:11.500.";
    QTest::newRow("no video") << 2 << 0.0 << true << "10:C" << QStringList{ "novideo" } << QStringList{}
                              << "Nothing coded: add a video or audio file to the project first.";
    QTest::newRow("labeling disabled") << 2 << 600.0 << false << "10:D" << QStringList{ "disabled" } << QStringList{}
                                       << "Nothing coded: labeling is disabled. Click anywhere on the timelines to enable it.";
    QTest::newRow("a key of no label says nothing") << 2 << 600.0 << true << "10:Z" << QStringList{ "nolabel" } << QStringList{} << none;
}

void TstKeyboardCoder::pressesSayWhatTheyDid()
{
    QFETCH(int, mode);
    QFETCH(double, videoLength);
    QFETCH(bool, enabled);
    QFETCH(QString, presses);
    QFETCH(QStringList, outcomes);
    QFETCH(QStringList, segments);
    QFETCH(QString, lastMessage);

    OVLabelingSettings settings;
    settings.setLabelingMode(mode);
    settings.setLeadOpenTime(0.0);
    settings.setLeadCloseTime(0.0);
    settings.setDefaultSegmentDuration(2.0);
    Project project;
    Timeline *t = newProject(&project, videoLength);
    OVTimelineHistory requests;
    requests.setProject(&project);
    OVKeyboardCoder coder(&requests);
    coder.setProject(&project);
    coder.setLabelingSettings(&settings);
    coder.setLabelingEnabled(enabled);
    QSignalSpy coded(&coder, &OVKeyboardCoder::coded);

    static const QHash<int, QString> names{ { OVKeyboardCoder::Created, "created" }, { OVKeyboardCoder::Opened, "opened" },
        { OVKeyboardCoder::Closed, "closed" }, { OVKeyboardCoder::InsideSegment, "inside" }, { OVKeyboardCoder::NoVideo, "novideo" },
        { OVKeyboardCoder::LabelingDisabled, "disabled" }, { OVKeyboardCoder::NoLabel, "nolabel" } };
    QStringList seen;
    OVKeyboardCoder::Result last;
    for (const QString &press : presses.split(QLatin1Char(';'))) {
        project.state()->setCurrentPos(press.section(QLatin1Char(':'), 0, 0).toDouble());
        last = coder.code(press.section(QLatin1Char(':'), 1).at(0));
        seen << names.value(last.outcome, QStringLiteral("?"));
        // A press that changed the model says nothing; one that did not names the label it meant.
        QCOMPARE(last.message.isEmpty(), last.changed() || last.outcome == OVKeyboardCoder::NoLabel);
        if (last.changed())
            QVERIFY(t->findSegment(last.segmentId));
    }
    QCOMPARE(seen, outcomes);
    QCOMPARE(segmentList(t), segments);
    QCOMPARE(last.message, lastMessage);
    if (!lastMessage.isEmpty()) {
        const auto reported = coded.last().first().value<OVKeyboardCoder::Result>();
        QCOMPARE(reported.message, lastMessage);
        QCOMPARE(t->label(reported.labelId)->matchesKey(presses.back()), true);
    }
    // Only presses of a label's key are announced.
    QCOMPARE(coded.size(), int(outcomes.size() - outcomes.count(QStringLiteral("nolabel"))));
    QCOMPARE(project.history()->count(), int(outcomes.count(QStringLiteral("created")) + outcomes.count(QStringLiteral("opened")) + outcomes.count(QStringLiteral("closed"))));
}

QTEST_GUILESS_MAIN(TstKeyboardCoder)
#include "tst_keyboardcoder.moc"
