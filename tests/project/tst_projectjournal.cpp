// The journal of changes: whatever happens to the model, recovery rebuilds it, from a saved file
// or from nothing, and a torn or damaged end costs only the record it hit.
#include "projectfixture.h"

#include "project/label.h"
#include "project/ovjournalfile.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectjournal.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QTemporaryDir>
#include <QtTest>

#include <functional>

using namespace OVProject;

using Edit = std::function<void(Project *)>;
Q_DECLARE_METATYPE(Edit)

namespace {
Timeline *first(Project *p) { return p->timelineGroup()->timelines().first(); }
Segment *seg(Project *p, const char *id) { return first(p)->findSegment(QString::fromLatin1(id)); }
} // namespace

class TestProjectJournal : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void recoveryRebuildsEveryChange_data();
    void recoveryRebuildsEveryChange();
    void damagedEndCostsOnlyWhatItHit_data();
    void damagedEndCostsOnlyWhatItHit();
    void saveKeepsChangesMadeAfterItsSnapshot();
    void recoveryCopyIsTheStartingPoint();

private:
    QString journal() const { return m_dir.filePath(QStringLiteral("journal.kvj")); }
    QString saved(Project *p)
    {
        const QString path = m_dir.filePath(QStringLiteral("base.kvpr"));
        const OV::Error e = OVLocalFileStorage().save(path, p);
        return e.isOk() ? path : QString();
    }
    QTemporaryDir m_dir;
};

void TestProjectJournal::recoveryRebuildsEveryChange_data()
{
    QTest::addColumn<Edit>("edit");
    QTest::addRow("segment coded") << Edit([](Project *p) { first(p)->labels().at(1)->addSegment(new Segment(30, 31)); });
    QTest::addRow("open segment closed") << Edit([](Project *p) { seg(p, "seg-2")->setEnd(25.5); });
    QTest::addRow("segment described") << Edit([](Project *p) { seg(p, "seg-1")->setDescription(QStringLiteral("x\ny")); });
    QTest::addRow("segment deleted") << Edit([](Project *p) { delete seg(p, "seg-1"); });
    QTest::addRow("segment removed") << Edit([](Project *p) { seg(p, "seg-3")->label()->removeSegment(seg(p, "seg-3")); });
    QTest::addRow("segment moved to another label") << Edit([](Project *p) { first(p)->labels().at(3)->addSegment(seg(p, "seg-1")); });
    QTest::addRow("segments added at once") << Edit([](Project *p) {
        first(p)->labels().at(2)->addSegments({ new Segment(1, 2), new Segment(0.5, 9), new Segment(3, 4) });
    });
    QTest::addRow("label edited") << Edit([](Project *p) {
        Label *l = first(p)->labels().at(2);
        l->setName(QStringLiteral("Gaze"));
        l->setKey(QChar(u'G'));
        l->setColor(QColor(1, 2, 3, 4));
    });
    QTest::addRow("label moved") << Edit([](Project *p) { first(p)->moveLabel(0, 3); });
    QTest::addRow("label with segments added") << Edit([](Project *p) {
        auto *l = new Label;
        l->setName(QStringLiteral("New"));
        l->addSegment(new Segment(5, 6));
        first(p)->insertLabel(1, l);
    });
    QTest::addRow("label removed") << Edit([](Project *p) { first(p)->removeLabel(first(p)->labels().at(0)); });
    QTest::addRow("timeline added") << Edit([](Project *p) { p->createTimeline(QStringLiteral("cleo"))->labels().at(0)->addSegment(new Segment(1, 2)); });
    QTest::addRow("timeline removed") << Edit([](Project *p) {
        Timeline *t = p->timelineGroup()->timelines().at(1);
        QList<Id> ids = p->timelineIds();
        ids.removeAll(t->id());
        p->setTimelineIds(ids);
        p->timelineGroup()->removeTimeline(t);
    });
    QTest::addRow("header edited") << Edit([](Project *p) {
        p->setTitle(QStringLiteral("Renamed"));
        p->setProjectType(0);
        p->setVideoLength(99.5);
    });
    QTest::addRow("hidden lists and attachments") << Edit([](Project *p) {
        first(p)->setSegmentHidden(QStringLiteral("seg-1"), true);
        first(p)->setLabelHidden(first(p)->labels().at(1)->id(), false);
        first(p)->setUtteranceUserHidden(QStringLiteral("Teacher"), true);
        first(p)->setBinaryData(QStringLiteral("drawings"), QByteArray("new"));
        first(p)->removeBinaryData(QStringLiteral("empty"));
        first(p)->setBlind(false);
    });
    QTest::addRow("utterances") << Edit([](Project *p) {
        first(p)->utterance(QStringLiteral("utt-1"))->setText(QStringLiteral("Changed"));
        first(p)->removeUtterance(first(p)->utterance(QStringLiteral("utt-2")));
        auto *u = new Utterance;
        u->setSpeaker(QStringLiteral("Pupil"));
        u->setEndTime(8);
        first(p)->addUtterance(u);
    });
    QTest::addRow("segment groups") << Edit([](Project *p) {
        first(p)->segmentGroup(QStringLiteral("grp-1"))->addSegmentId(QStringLiteral("seg-2"));
        first(p)->removeSegmentGroup(first(p)->segmentGroup(QStringLiteral("grp-empty")));
        first(p)->addSegmentGroup(new SegmentGroup);
    });
}

void TestProjectJournal::recoveryRebuildsEveryChange()
{
    QFETCH(Edit, edit);
    // Once on a saved file, once on a project that exists only in memory.
    for (const bool wasSaved : { true, false }) {
        Project live;
        Fixture::fillProject(&live);
        const QString base = wasSaved ? saved(&live) : QString();
        QVERIFY(!wasSaved || !base.isEmpty());
        OVProjectJournal j;
        QVERIFY(j.start(journal(), &live, base, !wasSaved).isOk());
        edit(&live);
        QVERIFY(j.changeCount() > 0);

        Project back;
        OVProjectJournal::Summary summary;
        const OV::Error e = OVProjectJournal::recover(journal(), &back, &summary);
        QVERIFY2(e.isOk(), qPrintable(e.message()));
        QCOMPARE(summary.basePath, base);
        QCOMPARE(summary.changes, j.changeCount());
        const QString diff = Fixture::difference(&live, &back);
        QVERIFY2(diff.isEmpty(), qPrintable(QStringLiteral("%1: %2").arg(wasSaved ? "saved" : "new", diff)));
    }
}

void TestProjectJournal::damagedEndCostsOnlyWhatItHit_data()
{
    QTest::addColumn<int>("damage");  // 0: cut inside the last record, 1: flip a byte of it, 2: garbage after it,
                                      // 3: flip a byte of the middle record
    QTest::addColumn<int>("expected"); // records still read of 5
    QTest::addRow("torn last record") << 0 << 4;
    QTest::addRow("last record corrupted") << 1 << 4;
    QTest::addRow("garbage after the end") << 2 << 5;
    QTest::addRow("middle record corrupted") << 3 << 2;
}

void TestProjectJournal::damagedEndCostsOnlyWhatItHit()
{
    QFETCH(int, damage);
    QFETCH(int, expected);
    qint64 ends[5];
    {
        OVJournalFile f;
        QVERIFY(f.create(journal(), {}, 1).isOk());
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(f.append(QByteArray("record ") + QByteArray::number(i)), quint64(i + 1));
            ends[i] = QFileInfo(journal()).size();
        }
    }
    QFile file(journal());
    QVERIFY(file.open(QIODevice::ReadWrite));
    QByteArray bytes = file.readAll();
    if (damage == 0)
        bytes.truncate(ends[4] - 3);
    else if (damage == 1)
        bytes[ends[4] - 2] = bytes[ends[4] - 2] ^ 0x20;
    else if (damage == 2)
        bytes += QByteArray(40, '\xee');
    else
        bytes[ends[2] - 1] = bytes[ends[2] - 1] ^ 0x01;
    file.resize(0);
    file.write(bytes);
    file.close();

    OVJournalFile::Contents contents;
    QVERIFY(OVJournalFile::read(journal(), &contents).isOk());
    QCOMPARE(contents.records.size(), expected);
    for (int i = 0; i < expected; ++i)
        QCOMPARE(contents.records[i].payload, QByteArray("record ") + QByteArray::number(i));
    QCOMPARE(contents.ignoredBytes, bytes.size() - (expected ? ends[expected - 1] : OVJournalFile::HeaderSize));
}

void TestProjectJournal::saveKeepsChangesMadeAfterItsSnapshot()
{
    Project live;
    Fixture::fillProject(&live);
    OVProjectJournal j;
    QVERIFY(j.start(journal(), &live, QString(), true).isOk());
    seg(&live, "seg-1")->setEnd(16);
    // Where the recording stands is no change, and outlives the snapshot it was noted before.
    j.notePosition(12.5);
    // The save's snapshot is taken here; the file is written while coding goes on.
    const quint64 snapshot = j.lastSequence();
    const QString base = saved(&live);
    first(&live)->labels().at(0)->addSegment(new Segment(40, 41, QStringLiteral("after")));
    QVERIFY(j.rebase(base, snapshot).isOk());
    QCOMPARE(j.changeCount(), 1);
    first(&live)->labels().at(0)->addSegment(new Segment(50, 51));

    Project back;
    OVProjectJournal::Summary summary;
    QVERIFY(OVProjectJournal::recover(journal(), &back, &summary).isOk());
    QCOMPARE(summary.changes, 2);
    QCOMPARE(summary.basePath, base);
    QCOMPARE(summary.position, 12.5);
    QVERIFY2(Fixture::difference(&live, &back).isEmpty(), qPrintable(Fixture::difference(&live, &back)));
    j.notePosition(30.25);
    QVERIFY(OVProjectJournal::readSummary(journal(), &summary).isOk());
    QCOMPARE(summary.position, 30.25);
    QCOMPARE(summary.changes, 2);
}

void TestProjectJournal::recoveryCopyIsTheStartingPoint()
{
    Project live;
    Fixture::fillProject(&live);
    const QString base = saved(&live);
    OVProjectJournal j;
    QVERIFY(j.start(journal(), &live, base, false).isOk());
    seg(&live, "seg-1")->setStart(1);
    const QString copy = m_dir.filePath(QStringLiteral("copy.kvpr"));
    QVERIFY(OVLocalFileStorage().save(copy, &live).isOk());
    j.noteRecoveryCopy(copy);
    j.stop();
    // The base is gone: the copy alone is enough.
    QVERIFY(QFile::remove(base));
    Project back;
    OVProjectJournal::Summary summary;
    QVERIFY(OVProjectJournal::recover(journal(), &back, &summary).isOk());
    QCOMPARE(summary.recoveryCopy, copy);
    QVERIFY(summary.baseChanged());
    QVERIFY2(Fixture::difference(&live, &back).isEmpty(), qPrintable(Fixture::difference(&live, &back)));
}

QTEST_GUILESS_MAIN(TestProjectJournal)
#include "tst_projectjournal.moc"
