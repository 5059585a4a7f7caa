#include "projectfixture.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QCryptographicHash>
#include <QPointer>
#include <QRandomGenerator>
#include <QSet>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace OVProject;

namespace {
class IdEmitter : public QObject
{
    Q_OBJECT
Q_SIGNALS:
    void hovered(OVProject::Id id);
};

class IdReceiver : public QObject
{
    Q_OBJECT
public:
    QString got;
public Q_SLOTS:
    void onHovered(OVProject::Id id) { got = id; }
};

std::unique_ptr<Project> projectWithOneTimeline(Timeline **timeline, Label **label)
{
    auto p = std::make_unique<Project>();
    *timeline = p->startNew(QStringLiteral("anna"));
    *label = (*timeline)->labels().first();
    return p;
}

QList<Segment *> bruteForce(const QList<Segment *> &all, double from, double to)
{
    QList<Segment *> out;
    for (Segment *s : all) {
        if (s->start() <= to && s->end() >= from)
            out.append(s);
    }
    return out;
}

QList<Segment *> sortedByAddress(QList<Segment *> l)
{
    std::sort(l.begin(), l.end());
    return l;
}
} // namespace

class TestModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void changesTravelUpToTheGroup();
    void deletingNodesUpdatesOwners_data();
    void deletingNodesUpdatesOwners();
    void copyFromOtherClassChangesNothing();
    void resetDefaults();
    void segmentHash_data();
    void segmentHash();
    void newTimelineGetsDefaultLabels();
    void labelForKeyIgnoresCase();
    void rangeQueriesMatchBruteForce_data();
    void rangeQueriesMatchBruteForce();
    void openSegmentsAreFound();
    void segmentMovesBetweenLabels();
    void idsAreUnique();
    void idTravelsInQueuedSignals();
    void takeContentFromMovesTimelines();
};

void TestModel::changesTravelUpToTheGroup()
{
    Timeline *t;
    Label *l;
    auto p = projectWithOneTimeline(&t, &l);
    auto *s = new Segment(1.0, 2.0);
    l->addSegment(s);
    auto *u = new Utterance;
    t->addUtterance(u);

    TimelineGroup *g = p->timelineGroup();
    QSignalSpy labelSegs(l, &Label::segmentsChanged);
    QSignalSpy tlSegs(t, &Timeline::segmentsChanged);
    QSignalSpy grpSegs(g, &TimelineGroup::segmentsChanged);
    QSignalSpy grpChanged(g, &TimelineGroup::changed);
    QSignalSpy grpDetails(g, &TimelineGroup::labelDetailsChanged);
    QSignalSpy grpUtt(g, &TimelineGroup::utterancesChanged);
    QSignalSpy grpLabels(g, &TimelineGroup::labelsChanged);

    s->setStart(1.5);
    QCOMPARE(labelSegs.count(), 1);
    QCOMPARE(tlSegs.count(), 1);
    QCOMPARE(grpSegs.count(), 1);
    QCOMPARE(grpChanged.count(), 1);
    s->setStart(1.5); // no change, no signal
    QCOMPARE(grpSegs.count(), 1);
    s->setDescription(QStringLiteral("note"));
    QCOMPARE(grpSegs.count(), 2);

    l->setName(QStringLiteral("Greeting"));
    QCOMPARE(grpDetails.count(), 1);
    QCOMPARE(grpSegs.count(), 2);

    u->setText(QStringLiteral("hello"));
    QCOMPARE(grpUtt.count(), 1);

    t->addLabel(new Label);
    QCOMPARE(grpLabels.count(), 1);
    t->setSegmentHidden(s->id(), true);
    QCOMPARE(grpSegs.count(), 3);
    QVERIFY(t->isSegmentHidden(s->id()));
}

void TestModel::deletingNodesUpdatesOwners_data()
{
    QTest::addColumn<QString>("what");
    QTest::newRow("segment") << "segment";
    QTest::newRow("label") << "label";
    QTest::newRow("utterance") << "utterance";
    QTest::newRow("group") << "group";
    QTest::newRow("timeline") << "timeline";
}

void TestModel::deletingNodesUpdatesOwners()
{
    QFETCH(QString, what);
    Timeline *t;
    Label *l;
    auto p = projectWithOneTimeline(&t, &l);
    auto *s = new Segment(3.0, 4.0);
    l->addSegment(s);
    l->addSegment(new Segment(5.0, 6.0));
    auto *u = new Utterance;
    t->addUtterance(u);
    auto *sg = new SegmentGroup;
    t->addSegmentGroup(sg);
    TimelineGroup *g = p->timelineGroup();
    QSignalSpy grpChanged(g, &TimelineGroup::changed);

    if (what == QLatin1String("segment")) {
        QSignalSpy labelSegs(l, &Label::segmentsChanged);
        QSignalSpy tlSegs(t, &Timeline::segmentsChanged);
        QSignalSpy grpSegs(g, &TimelineGroup::segmentsChanged);
        delete s;
        QCOMPARE(l->segmentCount(), 1);
        QVERIFY(!l->segments().contains(s));
        QVERIFY(!l->segmentsInRange(0, 100).contains(s));
        QCOMPARE(labelSegs.count(), 1);
        QCOMPARE(tlSegs.count(), 1);
        QCOMPARE(grpSegs.count(), 1);
    } else if (what == QLatin1String("label")) {
        QSignalSpy grpLabels(g, &TimelineGroup::labelsChanged);
        const Id segId = s->id();
        delete l;
        QCOMPARE(t->labels().size(), 3);
        QVERIFY(!t->findSegment(segId));
        QCOMPARE(grpLabels.count(), 1);
    } else if (what == QLatin1String("utterance")) {
        QSignalSpy grpUtt(g, &TimelineGroup::utterancesChanged);
        delete u;
        QVERIFY(t->utterances().isEmpty());
        QCOMPARE(grpUtt.count(), 1);
    } else if (what == QLatin1String("group")) {
        QSignalSpy tlGroups(t, &Timeline::segmentGroupsChanged);
        delete sg;
        QVERIFY(t->segmentGroups().isEmpty());
        QCOMPARE(tlGroups.count(), 1);
    } else {
        QSignalSpy grpTimelines(g, &TimelineGroup::timelinesChanged);
        delete t;
        QCOMPARE(g->count(), 0);
        QCOMPARE(grpTimelines.count(), 1);
    }
    QVERIFY(grpChanged.count() >= 1);
    // Whatever is left must still be deletable without touching freed nodes.
    p.reset();
}

void TestModel::copyFromOtherClassChangesNothing()
{
    Project p;
    p.setTitle(QStringLiteral("t"));
    Timeline t;
    Label l;
    Segment s(1, 2);
    SegmentGroup g;
    Utterance u;
    const QList<BaseNode *> nodes { &p, &t, &l, &s, &g, &u };
    for (BaseNode *target : nodes) {
        for (BaseNode *source : nodes) {
            if (source == target)
                continue;
            const QString before = target->contentHash();
            const Id idBefore = target->id();
            QVERIFY2(!target->copyFrom(source),
                qPrintable(QStringLiteral("%1 <- %2").arg(target->nodeType()).arg(source->nodeType())));
            QCOMPARE(target->contentHash(), before);
            QCOMPARE(target->id(), idBefore);
        }
        QVERIFY(!target->copyFrom(nullptr));
    }
}

void TestModel::resetDefaults()
{
    Timeline *t;
    Label *l;
    auto p = projectWithOneTimeline(&t, &l);
    p->setOnlineId(5);
    p->setUseRelativePath(false);
    p->setProjectType(1);
    p->setMaxTextWidth(80);
    p->setVideoId(3);
    p->setTitle(QStringLiteral("x"));
    p->setVideoPath(QStringLiteral("/v.mp4"));
    p->setOfflineUser(QStringLiteral("u"));
    p->state()->setCurrentPos(4.0);
    p->reset();
    const Project fresh;
    QCOMPARE(Fixture::difference(p.get(), &fresh), QString());
    QCOMPARE(p->timelineGroup()->count(), 0);
    QCOMPARE(p->state()->currentPos(), 0.0);
}

void TestModel::segmentHash_data()
{
    QTest::addColumn<double>("a");
    QTest::addColumn<double>("b");
    QTest::addColumn<bool>("same");
    QTest::newRow("beyond 6 digits") << 12.3456 << 12.34561 << true;
    QTest::newRow("6th digit") << 12.3456 << 12.3457 << false;
}

void TestModel::segmentHash()
{
    QFETCH(double, a);
    QFETCH(double, b);
    QFETCH(bool, same);
    Segment s1(a, 20.0, QStringLiteral("seg"));
    Segment s2(b, 20.0, QStringLiteral("seg"));
    QCOMPARE(s1.contentHash() == s2.contentHash(), same);
    // Known value: MD5 of "12.3456" "20" "" "" "seg".
    if (a == 12.3456)
        QCOMPARE(s1.contentHash(),
            QString::fromLatin1(QCryptographicHash::hash("12.345620seg", QCryptographicHash::Md5).toHex()));
}

void TestModel::newTimelineGetsDefaultLabels()
{
    Project p;
    QSignalSpy timelines(p.timelineGroup(), &TimelineGroup::timelinesChanged);
    Timeline *t = p.startNew(QStringLiteral("bob"));
    QVERIFY(!p.id().isEmpty());
    QCOMPARE(p.timelineGroup()->timelineForOwner(QStringLiteral("bob")), t);
    QCOMPARE(p.timelineIds(), QList<Id> { t->id() });
    QCOMPARE(timelines.count(), 1);
    // Codable at once: every default label has a key of its own.
    QSet<QChar> keys;
    for (const Label *l : t->labels())
        keys.insert(l->key());
    QVERIFY(!t->labels().isEmpty());
    QCOMPARE(keys.size(), t->labels().size());
    QVERIFY(!keys.contains(QChar()));
    // A second user's timeline gets its own labels, with their own ids.
    Timeline *t2 = p.createTimeline(QStringLiteral("carl"));
    QCOMPARE(t2->labels().size(), t->labels().size());
    QVERIFY(t2->labels().first()->id() != t->labels().first()->id());
}

void TestModel::labelForKeyIgnoresCase()
{
    Timeline t;
    t.addDefaultLabels();
    QCOMPARE(t.labelForKey(QLatin1Char('b')), t.labels().at(1));
    QCOMPARE(t.labelForKey(QLatin1Char('D')), t.labels().at(3));
    QCOMPARE(t.labelForKey(QLatin1Char('z')), nullptr);
}

void TestModel::rangeQueriesMatchBruteForce_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("bulk");
    QTest::addColumn<quint32>("seed");
    // Open segments reach every query and so hide a block maximum left too small: half the rows
    // have none.
    QTest::addColumn<bool>("withOpen");
    QTest::newRow("small one by one") << 50 << false << 1u << true;
    QTest::newRow("one by one") << 1500 << false << 2u << true;
    QTest::newRow("bulk") << 3000 << true << 3u << true;
    QTest::newRow("small one by one, none open") << 50 << false << 4u << false;
    QTest::newRow("one by one, none open") << 1500 << false << 5u << false;
    QTest::newRow("bulk, none open") << 3000 << true << 6u << false;
}

void TestModel::rangeQueriesMatchBruteForce()
{
    QFETCH(int, count);
    QFETCH(bool, bulk);
    QFETCH(quint32, seed);
    QFETCH(bool, withOpen);
    QRandomGenerator rng(seed);
    auto randomSegment = [&rng, withOpen] {
        const double start = rng.bounded(3600.0);
        double end;
        switch (rng.bounded(10)) {
        case 0:
            end = withOpen ? Segment::OpenEnd : start;
            break;
        case 1:
            end = start + rng.bounded(1800.0); // long
            break;
        default:
            end = start + rng.bounded(5.0);
        }
        return new Segment(start, end);
    };
    Label label;
    auto check = [&label, &rng](int queries = 40) {
        for (int q = 0; q < queries; ++q) {
            const double from = rng.bounded(3700.0) - 50.0;
            const double to = from + (q % 4 == 0 ? 0.0 : rng.bounded(q % 2 ? 30.0 : 900.0));
            const QList<Segment *> got = label.segmentsInRange(from, to);
            QCOMPARE(sortedByAddress(got), sortedByAddress(bruteForce(label.segments(), from, to)));
            for (int i = 1; i < got.size(); ++i)
                QVERIFY(got[i - 1]->start() <= got[i]->start());
        }
        // A point query at exactly a segment's end finds it (the last end of a block is one).
        for (int q = 0; q < queries && label.segmentCount() > 0; ++q) {
            const double at = label.segments().at(rng.bounded(label.segmentCount()))->end();
            QCOMPARE(sortedByAddress(label.segmentsInRange(at, at)), sortedByAddress(bruteForce(label.segments(), at, at)));
        }
        QCOMPARE(label.checkIndex(), QString());
    };
    QList<Segment *> fresh;
    for (int i = 0; i < count; ++i)
        fresh.append(randomSegment());
    if (bulk)
        label.addSegments(fresh);
    for (int i = 0; !bulk && i < count; ++i) {
        label.addSegment(fresh[i]);
        if (rng.bounded(20) == 0) // queries between inserts keep the index live
            check(2); // a point and a short range
    }
    check();
    // Moves: starts, ends, both; some close open segments, some reopen.
    for (int i = 0; i < count / 3; ++i) {
        Segment *s = label.segments().at(rng.bounded(label.segmentCount()));
        switch (rng.bounded(4)) {
        case 0:
            s->setStart(rng.bounded(3600.0));
            break;
        case 1:
            // A resize by the mouse: the end alone, later or earlier.
            s->setEnd(s->isOpen() || !withOpen ? s->start() + rng.bounded(withOpen ? 2.0 : 2000.0) : Segment::OpenEnd);
            break;
        case 2:
            s->setTimes(rng.bounded(3600.0), rng.bounded(3600.0) + 3600.0);
            break;
        default:
            s->setStart(s->start() + 0.001);
        }
        if (i % 50 == 0)
            check();
    }
    check();
    // Deletes: by deleting the object and through the label, plus a few more inserts.
    for (int i = 0; i < count / 4; ++i) {
        Segment *s = label.segments().at(rng.bounded(label.segmentCount()));
        if (i % 2)
            delete s;
        else
            label.removeSegment(s);
        if (i % 5 == 0)
            label.addSegment(randomSegment());
        if (i % 40 == 0)
            check();
    }
    check();
}

void TestModel::openSegmentsAreFound()
{
    Label label;
    auto *open = new Segment(100.0, Segment::OpenEnd);
    auto *closed = new Segment(10.0, 20.0);
    label.addSegment(closed);
    label.addSegment(open);
    QVERIFY(open->isOpen());
    QCOMPARE(label.openSegment(), open);
    QCOMPARE(label.segmentsInRange(5000.0, 5001.0), QList<Segment *> { open });
    QCOMPARE(label.segmentsInRange(15.0, 150.0), (QList<Segment *> { closed, open }));
    QCOMPARE(label.segmentsInRange(30.0, 99.9), QList<Segment *> {});
    open->setEnd(110.0);
    QCOMPARE(label.openSegment(), nullptr);
    QCOMPARE(label.segmentsInRange(5000.0, 5001.0), QList<Segment *> {});
    // Boundaries are inclusive.
    QCOMPARE(label.segmentsInRange(20.0, 20.0), QList<Segment *> { closed });
    QCOMPARE(label.segmentsInRange(0.0, 10.0), QList<Segment *> { closed });
}

void TestModel::segmentMovesBetweenLabels()
{
    Label a, b;
    auto *s = new Segment(1.0, 2.0);
    a.addSegment(s);
    QSignalSpy aSpy(&a, &Label::segmentsChanged);
    b.addSegment(s);
    QCOMPARE(aSpy.count(), 1);
    QCOMPARE(a.segmentCount(), 0);
    QCOMPARE(s->label(), &b);
    QCOMPARE(s->parent(), &b);
    QVERIFY(a.segmentsInRange(0, 10).isEmpty());
    QCOMPARE(b.segmentsInRange(0, 10), QList<Segment *> { s });
    QCOMPARE(b.takeSegment(s), s);
    QCOMPARE(s->label(), nullptr);
    s->setStart(0.5); // no label to tell, no crash
    delete s;
    QCOMPARE(b.segmentCount(), 0);
}

void TestModel::idsAreUnique()
{
    QSet<Id> ids;
    for (int i = 0; i < 20000; ++i) {
        const Id id = BaseNode::newId();
        QVERIFY(!id.isEmpty());
        QVERIFY(!id.contains(QLatin1Char('{')));
        ids.insert(id);
    }
    QCOMPARE(ids.size(), 20000);
}

void TestModel::idTravelsInQueuedSignals()
{
    Segment s; // registers the meta-types
    QVERIFY(QMetaType::fromName("OVProject::Id").isValid());
    QVERIFY(QMetaType::fromName("OVProject::Segment*").isValid());
    IdEmitter emitter;
    IdReceiver receiver;
    QVERIFY(connect(&emitter, SIGNAL(hovered(OVProject::Id)), &receiver, SLOT(onHovered(OVProject::Id)),
        Qt::QueuedConnection));
    Q_EMIT emitter.hovered(QStringLiteral("abc"));
    QVERIFY(receiver.got.isEmpty());
    QTRY_COMPARE(receiver.got, QStringLiteral("abc"));
}

void TestModel::takeContentFromMovesTimelines()
{
    Project target;
    target.startNew(QStringLiteral("old"));
    QPointer<Timeline> oldTimeline = target.timelineGroup()->timelines().first();
    Project loaded;
    loaded.setTitle(QStringLiteral("T"));
    Timeline *t = loaded.createTimeline(QStringLiteral("new"));
    target.takeContentFrom(&loaded);
    QVERIFY(oldTimeline.isNull());
    QCOMPARE(target.title(), QStringLiteral("T"));
    QCOMPARE(target.timelineGroup()->timelines(), QList<Timeline *> { t });
    QCOMPARE(t->parent(), target.timelineGroup());
    QCOMPARE(loaded.timelineGroup()->count(), 0);
    // Signals from the moved timeline now reach the target's group.
    QSignalSpy segs(target.timelineGroup(), &TimelineGroup::segmentsChanged);
    t->labels().first()->addSegment(new Segment(1, 2));
    QCOMPARE(segs.count(), 1);
}

QTEST_GUILESS_MAIN(TestModel)
#include "tst_model.moc"
