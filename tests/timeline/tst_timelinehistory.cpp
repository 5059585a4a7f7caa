#include "timelinefixture.h"

#include "project/history.h"
#include "project/timelinegroup.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinewidget.h"

#include <QRandomGenerator>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>

using namespace OVProject;
using namespace TimelineFixture;

// Undo and redo through the timeline's history, with the model re-checked after every step.
class TstTimelineHistory : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void codingSessionUndoRedo_data();
    void codingSessionUndoRedo();
    void editsUndoRedo();
    void failedRequestsChangeNothing();
    void stepsReportFailure();
    void duplicateKeysAreRefused();
    void deleteAsksFirst();
    void timelineFileRoundTrip();
    void timelineFileFailures();
    void idLookupsFollowEveryChange_data();
    void idLookupsFollowEveryChange();

private:
    static void checked(Project *p)
    {
        const QString problem = OVTimelineHistory::checkConsistency(p);
        QVERIFY2(problem.isEmpty(), qPrintable(problem));
    }
    static QString state(const Timeline *t) { return snapshot(t).join(QLatin1Char('\n')); }
    // Undo to the first state and redo to the last, one step at a time, checking every state.
    static void undoRedoAll(QUndoStack *stack, Project *p, const Timeline *t, const QStringList &states)
    {
        QCOMPARE(stack->count(), states.size() - 1);
        for (int i = states.size() - 1; i > 0; --i) {
            QCOMPARE(state(t), states.at(i));
            stack->undo();
            checked(p);
        }
        QCOMPARE(state(t), states.first());
        for (int i = 1; i < states.size(); ++i) {
            stack->redo();
            checked(p);
            QCOMPARE(state(t), states.at(i));
        }
    }
};

void TstTimelineHistory::codingSessionUndoRedo_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("double press") << int(OVLabelingSettings::DoublePressMode);
    QTest::newRow("single press") << int(OVLabelingSettings::SinglePressMode);
}

void TstTimelineHistory::codingSessionUndoRedo()
{
    QFETCH(int, mode);
    OVLabelingSettings settings;
    settings.setLabelingMode(mode);
    settings.setLeadOpenTime(1.5);
    settings.setLeadCloseTime(3.0);
    settings.setDefaultSegmentDuration(2.0);
    Project project;
    Timeline *t = newProject(&project, 3600.0);
    Segment *existing = new Segment(5.0, 6.0, BaseNode::newId());
    existing->setDescription(QStringLiteral("loaded"));
    t->labels().at(2)->addSegment(existing);

    OVTimelineControl control(&settings);
    control.setProject(&project);
    QVERIFY(showActive(&control));
    control.timelineWidget()->setLabelingEnabled(true);
    control.timelineWidget()->setFocus();

    QStringList history{ state(t) };
    QRandomGenerator rng(1234);
    double pos = 0.0;
    const char keys[] = { 'A', 'B', 'C', 'D', 'a', 'c' };
    for (int i = 0; i < 200; ++i) {
        pos += rng.bounded(4.0);
        project.state()->setCurrentPos(pos);
        QTest::keyClick(control.timelineWidget(), keys[rng.bounded(int(sizeof keys))]);
        if (state(t) != history.last())
            history.append(state(t));
    }
    QVERIFY(control.undoStack()->count() > 100);
    undoRedoAll(control.undoStack(), &project, t, history);
}

void TstTimelineHistory::editsUndoRedo()
{
    Project project;
    Timeline *t = newProject(&project);
    OVTimelineHistory h;
    h.setProject(&project);
    QUndoStack *stack = h.undoStack();
    QStringList states{ state(t) };
    auto step = [&](bool ok) {
        QVERIFY(ok);
        checked(&project);
        states << state(t);
        QCOMPARE(stack->count(), states.size() - 1);
    };

    Segment *a = h.addSegment(t->labels().at(0), 1.0, 2.0);
    step(a != nullptr);
    Segment *b = h.addSegment(t->labels().at(1), 3.0, 7.0, QStringLiteral("b"));
    step(b != nullptr);
    step(h.editSegment(a, 1.5, 4.0, QStringLiteral("edited")));
    step(h.moveSegments({ a, b }, t->labels().at(3)));
    Label *added = h.addLabel(t, QStringLiteral("Extra"), QLatin1Char('x'), QColor(QStringLiteral("#149555")));
    QVERIFY(added);
    QCOMPARE(added->key(), QChar(QLatin1Char('X')));
    step(true);
    step(h.moveSegments({ a }, added));
    step(h.editLabel(t->labels().at(1), QStringLiteral("Renamed"), QLatin1Char('r'), Qt::black, QStringLiteral("d")));
    step(h.moveLabel(t, 4, 0));
    step(h.removeLabel(t->labels().at(4))); // "Label 4", holding b
    step(h.removeSegments({ t->label(added->id())->segments().first() }));

    // A gesture of several requests is one step.
    h.beginGesture(QStringLiteral("two"));
    h.addSegment(t->labels().at(0), 10.0, 11.0);
    h.addSegment(t->labels().at(1), 12.0, 13.0);
    h.endGesture();
    step(true);
    // A gesture that changed nothing leaves no step.
    h.beginGesture(QStringLiteral("none"));
    h.endGesture();
    undoRedoAll(stack, &project, t, states);
}

void TstTimelineHistory::failedRequestsChangeNothing()
{
    Project project;
    Timeline *t = newProject(&project);
    Project other;
    Timeline *foreign = newProject(&other);
    OVTimelineHistory h;
    h.setProject(&project);
    Segment *s = h.addSegment(t->labels().at(0), 1.0, 2.0);
    const QString before = state(t);
    const int steps = h.undoStack()->count();

    QVERIFY(!h.addSegment(t->labels().at(0), 5.0, 4.0)); // ends before it starts
    QVERIFY(!h.editSegment(s, 3.0, 2.0, QString()));
    QVERIFY(!h.moveLabel(t, 0, 9));
    Segment *loose = new Segment(1.0, 2.0);
    QVERIFY(!h.moveSegments({ loose }, t->labels().at(1))); // held by no label
    delete loose;
    // Segments of another timeline cannot be moved into this one.
    Segment *theirs = new Segment(1.0, 2.0, BaseNode::newId());
    foreign->labels().at(0)->addSegment(theirs);
    QVERIFY(!h.moveSegments({ theirs }, t->labels().at(1)));
    QCOMPARE(state(t), before);
    QCOMPARE(h.undoStack()->count(), steps);
}

void TstTimelineHistory::stepsReportFailure()
{
    Project project;
    Timeline *t = newProject(&project);
    OVTimelineHistory h;
    h.setProject(&project);
    History *history = project.history();
    QSignalSpy failed(history, &History::stepFailed);
    Segment *kept = h.addSegment(t->labels().at(0), 1.0, 2.0);
    Segment *lost = h.addSegment(t->labels().at(1), 3.0, 4.0);
    QVERIFY(h.editSegment(kept, 1.0, 5.0, QStringLiteral("longer")));
    QCOMPARE(history->count(), 3);

    // A node deleted behind the history's back: the step that needs it says so and is dropped.
    delete lost;
    QVERIFY(history->undo()); // the edit of `kept`
    QVERIFY(!history->undo()); // the addition of the deleted segment
    QCOMPARE(failed.size(), 1);
    QCOMPARE(failed.first().first().toString(), QStringLiteral("Add segment"));
    QCOMPARE(history->count(), 2);
    QCOMPARE(segmentList(t), QStringList{ "0:1-2" });
    checked(&project);
    // The others still work.
    QVERIFY(history->redo());
    QCOMPARE(segmentList(t), QStringList{ "0:1-5" });

    // A request on a node of another project is refused before it becomes a step.
    Project other;
    Timeline *foreign = newProject(&other);
    QVERIFY(!h.addSegment(foreign->labels().at(0), 1.0, 2.0));
    QCOMPARE(history->count(), 2);
    QCOMPARE(other.history()->count(), 0);
    QCOMPARE(failed.size(), 1);
}

void TstTimelineHistory::duplicateKeysAreRefused()
{
    Project project;
    Timeline *t = newProject(&project); // keys A-D
    OVTimelineHistory h;
    h.setProject(&project);
    Label *first = t->labels().at(0);
    QVERIFY(!h.addLabel(t, QStringLiteral("Twin"), QLatin1Char('b'), Qt::red));
    QVERIFY(!h.editLabel(first, first->name(), QLatin1Char('c'), first->color(), QString()));
    QCOMPARE(first->key(), QChar(QLatin1Char('A')));
    QCOMPARE(OVTimelineHistory::keyConflict(t, QLatin1Char('d'), first),
        QStringLiteral("The key D is already used by the label \"Label 4\". Each label of a timeline needs a key of its own."));
    // Its own key, a free key and no key are fine.
    QVERIFY(OVTimelineHistory::keyConflict(t, QLatin1Char('a'), first).isEmpty());
    QVERIFY(h.editLabel(first, QStringLiteral("Renamed"), QLatin1Char('A'), first->color(), QString()));
    QVERIFY(h.addLabel(t, QStringLiteral("Free"), QLatin1Char('e'), Qt::red));
    QVERIFY(h.addLabel(t, QStringLiteral("No key"), QChar(), Qt::red));
    QVERIFY(h.addLabel(t, QStringLiteral("No key either"), QChar(), Qt::red));
    QCOMPARE(project.history()->count(), 4);

    // A label set whose labels share a key: the first keeps it.
    QList<Label *> imported;
    for (const char *k : { "X", "x", "Y" }) {
        auto *l = new Label;
        l->setName(QStringLiteral("L%1").arg(imported.size()));
        l->setKey(QLatin1Char(*k));
        imported << l;
    }
    QStringList refused;
    QVERIFY(h.replaceLabels(t, imported, &refused));
    qDeleteAll(imported);
    QCOMPARE(t->labels().at(0)->key(), QChar(QLatin1Char('X')));
    QVERIFY(t->labels().at(1)->key().isNull());
    QCOMPARE(t->labels().at(2)->key(), QChar(QLatin1Char('Y')));
    QCOMPARE(refused, QStringList{ QStringLiteral("\"L1\" loses the key X, which \"L0\" already uses.") });
}

void TstTimelineHistory::deleteAsksFirst()
{
    Project project;
    Timeline *t = newProject(&project);
    OVTimelineControl control(nullptr);
    control.setProject(&project);
    OVTimelineWidget *w = control.timelineWidget();
    Segment *a = w->history()->addSegment(t->labels().at(0), 1.0, 2.0);
    Segment *b = w->history()->addSegment(t->labels().at(1), 3.0, 4.0);
    w->history()->addSegment(t->labels().at(1), 5.0, 6.0);
    w->selectSegments({ a, b });

    QStringList asked;
    bool answer = false;
    control.setConfirmation([&](const QString &q) {
        asked << q;
        return answer;
    });
    QVERIFY(!control.deleteSelectedSegments());
    QCOMPARE(asked, QStringList{ QStringLiteral("Are you sure that you want to delete selected segments?") });
    QCOMPARE(segmentList(t).size(), 3);
    answer = true;
    QVERIFY(control.deleteSelectedSegments());
    QCOMPARE(segmentList(t), QStringList{ "1:5-6" });
    QVERIFY(control.clearAll());
    QCOMPARE(segmentList(t), QStringList());
    control.undoStack()->undo();
    QCOMPARE(segmentList(t), QStringList{ "1:5-6" });
    control.undoStack()->undo();
    QCOMPARE(segmentList(t), (QStringList{ "0:1-2", "1:3-4", "1:5-6" }));
    checked(&project);
}

void TstTimelineHistory::timelineFileRoundTrip()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("codes.kvtl"));

    Project project;
    Timeline *t = newProject(&project);
    OVTimelineControl control(nullptr);
    control.setProject(&project);
    OVTimelineHistory *h = control.timelineWidget()->history();
    h->editLabel(t->labels().at(0), QStringLiteral("Gaze"), QLatin1Char('G'), QColor(QStringLiteral("#F3662E")), QStringLiteral("looks at"));
    h->addSegment(t->labels().at(0), 1.25, 2.5, QStringLiteral("first"));
    h->addSegment(t->labels().at(0), 10.0, 12.0);
    h->addSegment(t->labels().at(3), 0.0, Segment::OpenEnd);
    const QStringList segments = segmentList(t);
    auto labelText = [t] {
        QStringList out;
        for (const Label *l : t->labels())
            out << QStringLiteral("%1 %2 %3 %4").arg(l->name(), QString(l->key()), l->color().name(), l->description());
        return out;
    };
    const QStringList labels = labelText();

    QVERIFY(control.saveTimelineFile(path));

    // Change everything, then load the file back.
    h->removeLabel(t->labels().at(1));
    h->addSegment(t->labels().at(0), 30.0, 31.0);
    const int stepsBefore = h->undoStack()->count();
    QVERIFY(control.loadTimelineFile(path));
    QCOMPARE(labelText(), labels);
    QCOMPARE(segmentList(t), segments);
    QCOMPARE(t->labels().at(0)->segments().first()->description(), QStringLiteral("first"));
    checked(&project);
    // Loading is one step that undo takes back.
    QCOMPARE(h->undoStack()->count(), stepsBefore + 1);
    h->undoStack()->undo();
    QCOMPARE(t->labels().size(), 3);
}

void TstTimelineHistory::timelineFileFailures()
{
    QTemporaryDir dir;
    Project project;
    Timeline *t = newProject(&project);
    OVTimelineControl control(nullptr);
    control.setProject(&project);
    const QStringList before = snapshot(t);

    QVERIFY(!control.loadTimelineFile(dir.filePath(QStringLiteral("missing.kvtl"))));
    QCOMPARE(snapshot(t), before);

    QVERIFY(!control.saveTimelineFile(dir.filePath(QStringLiteral("no/such/folder/x.kvtl"))));
}

QTEST_MAIN(TstTimelineHistory)
#include "tst_timelinehistory.moc"

// Every way a segment comes, goes, moves or is renamed, each followed by lookups by id in every
// timeline: a path that forgets the timeline's id index leaves a segment unfound or a gone one
// still found. The index is built before each change, so that the change has to keep it.
void TstTimelineHistory::idLookupsFollowEveryChange_data()
{
    QTest::addColumn<QString>("change");
    for (const char *change : { "code", "undo code", "redo code", "close open", "delete", "undo delete",
             "delete objects", "delete label object", "move to label", "undo move", "move to other timeline", "new id",
             "new id of detached", "remove label", "undo remove label", "label to other timeline",
             "bulk add", "load timeline file", "undo load" })
        QTest::newRow(change) << QString::fromLatin1(change);
}

void TstTimelineHistory::idLookupsFollowEveryChange()
{
    QFETCH(QString, change);
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    Project project;
    Timeline *t = newProject(&project);
    Timeline *other = project.createTimeline(QStringLiteral("bob"));
    OVTimelineControl control(nullptr);
    control.setProject(&project);
    OVTimelineHistory *h = control.timelineWidget()->history();
    Label *a = t->labels().at(0);
    Label *b = t->labels().at(1);
    QVERIFY(h->addSegment(a, 1.0, 2.0) && h->addSegment(a, 3.0, 4.0) && h->addSegment(b, 5.0, 6.0));
    Segment *open = h->addSegment(b, 7.0, Segment::OpenEnd);
    QVERIFY(open);
    Segment *first = a->segments().first();
    const QString file = dir.filePath(QStringLiteral("codes.kvtl"));
    QVERIFY(control.saveTimelineFile(file));

    QSet<Id> everId;
    auto remember = [&] {
        for (const Timeline *tl : project.timelineGroup()->timelines())
            for (const Label *l : tl->labels())
                for (const Segment *s : l->segments())
                    everId.insert(s->id());
    };
    remember();
    const Id firstId = first->id();
    everId.insert(firstId);
    QVERIFY(t->findSegment(firstId) == first && other->findSegment(firstId) == nullptr);

    QUndoStack *stack = control.undoStack();
    if (change == "code" || change == "undo code" || change == "redo code") {
        QVERIFY(h->addSegment(a, 20.0, 21.0));
        remember();
        if (change != "code")
            stack->undo();
        if (change == "redo code")
            stack->redo();
    } else if (change == "close open") {
        QVERIFY(h->setSegmentTimes(open, 7.0, 8.0));
        QCOMPARE(b->openSegment(), nullptr);
    } else if (change == "delete" || change == "undo delete") {
        QVERIFY(h->removeSegments({ first, open }));
        if (change == "undo delete")
            stack->undo();
    } else if (change == "delete objects") {
        delete first;
        delete open;
    } else if (change == "delete label object") {
        delete b;
    } else if (change == "move to label" || change == "undo move") {
        QVERIFY(h->moveSegments({ first }, b));
        if (change == "undo move")
            stack->undo();
    } else if (change == "move to other timeline") {
        other->labels().at(0)->addSegment(first);
    } else if (change == "new id") {
        first->setId(BaseNode::newId());
        remember();
    } else if (change == "new id of detached") {
        // Renamed while out of the timeline, then put back.
        a->takeSegment(first);
        first->setId(BaseNode::newId());
        a->addSegment(first);
        remember();
    } else if (change == "remove label" || change == "undo remove label") {
        QVERIFY(h->removeLabel(a));
        if (change == "undo remove label")
            stack->undo();
    } else if (change == "label to other timeline") {
        other->addLabel(t->takeLabel(b));
    } else if (change == "bulk add") {
        a->addSegments({ new Segment(30.0, 31.0), new Segment(32.0, 33.0) });
        remember();
    } else if (change == "load timeline file" || change == "undo load") {
        // Loading replaces every label by copies with new ids.
        QVERIFY(control.loadTimelineFile(file));
        remember();
        if (change == "undo load")
            stack->undo();
    } else {
        QFAIL("unknown change");
    }

    // Each id is found in the timeline that holds it, through the timeline and through the label,
    // and nowhere else.
    int found = 0;
    for (const Id &id : std::as_const(everId)) {
        for (const Timeline *tl : project.timelineGroup()->timelines()) {
            Segment *expected = nullptr;
            for (const Label *l : tl->labels())
                for (Segment *s : l->segments())
                    if (s->id() == id)
                        expected = s;
            QVERIFY2(tl->findSegment(id) == expected, qPrintable(QStringLiteral("%1 in %2").arg(id, tl->owner())));
            if (expected) {
                QVERIFY(expected->label()->segment(id) == expected);
                ++found;
            }
            for (const Label *l : tl->labels())
                QVERIFY(l == (expected ? expected->label() : nullptr) || l->segment(id) == nullptr);
        }
    }
    QVERIFY(found > 0);
    checked(&project);
}
