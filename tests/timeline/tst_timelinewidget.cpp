#include "timelinefixture.h"

#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinelabelpainter.h"
#include "timeline/ovtimelinewidget.h"

#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QUndoStack>

using namespace OVProject;
using namespace TimelineFixture;

class TstTimelineWidget : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void ppsAndOffsetSetters();
    void wheelZoom();
    void wheelScrollLimits_data();
    void wheelScrollLimits();
    void wheelOtherModifiers();
    void segmentGeometry();
    void cursorGrabByMouse_data();
    void cursorGrabByMouse();
    void selectionByClickAndRubberBand();
    void dragOneSegment();
    void dragSeveralSegments();
    void dropAcceptsOnlySegPtr();
    void openSegmentFollowsPosition();
    void labelingMessages();
    void labelReorderIsOneStep();
    void resizeIsOneStep();
    void otherTimelinesAreReadOnly();
    void requireModifierGuardsClicks();

private:
    QPoint pointAt(int row, double time) const;

    Project *m_project = nullptr;
    Timeline *m_timeline = nullptr;
    OVTimelineWidget *m_widget = nullptr;
};

void TstTimelineWidget::init()
{
    m_project = new Project;
    m_timeline = newProject(m_project);
    m_widget = new OVTimelineWidget;
    m_widget->setProject(m_project);
    m_widget->resize(800, 300);
    m_widget->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_widget));
    m_widget->updateWaveformsGeometry();
}

void TstTimelineWidget::cleanup()
{
    delete m_widget;
    delete m_project;
}

QPoint TstTimelineWidget::pointAt(int row, double time) const
{
    const QRect r = m_widget->labelPainters().at(row)->rowRect();
    return QPoint(m_widget->mapping().xAt(time), r.center().y());
}

void TstTimelineWidget::ppsAndOffsetSetters()
{
    QSignalSpy pps(m_widget, &OVTimelineWidget::ppsChanged);
    QTest::ignoreMessage(QtDebugMsg, "TimelineWidget::pps set to: 2.5");
    m_widget->setPps(2.5);
    QCOMPARE(pps.size(), 1);
    QCOMPARE(pps.at(0).at(0).toDouble(), 2.5);
    m_widget->setPps(2.5);
    QCOMPARE(pps.size(), 1); // same value: nothing

    QSignalSpy offset(m_widget, &OVTimelineWidget::offsetChanged);
    QTest::ignoreMessage(QtDebugMsg, "TimelineWidget::offset set to: 42");
    m_widget->setOffset(42.0);
    QCOMPARE(m_widget->offset(), 42.0);
    QCOMPARE(offset.size(), 1);
    m_widget->setOffset(42.0);
    QCOMPARE(offset.size(), 1);
    // A new zoom keeps the offset.
    m_widget->setPps(4.0);
    QCOMPARE(m_widget->offset(), 42.0);
}

void TstTimelineWidget::wheelZoom()
{
    m_widget->setPps(2.0);
    for (int d : { 120, 1, -120, -5000 }) // only the sign of a notch counts
        m_widget->applyWheel(d, Qt::ControlModifier);
    QVERIFY(qFuzzyCompare(m_widget->pps(), 2.0 * 0.9801));

    // Sent as real wheel events.
    m_widget->setPps(1.0);
    const QPoint at = pointAt(0, 10.0);
    QWheelEvent forward(at, m_widget->mapToGlobal(at), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::ControlModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(m_widget, &forward);
    QVERIFY(qFuzzyCompare(m_widget->pps(), 1.1));
}

void TstTimelineWidget::wheelScrollLimits_data()
{
    QTest::addColumn<double>("pps");
    QTest::addColumn<double>("start");
    QTest::addColumn<int>("delta");
    QTest::addColumn<double>("expected");
    QTest::newRow("150 px forward") << 1.0 << 0.0 << 120 << 150.0;
    QTest::newRow("150 px back, zoomed in") << 10.0 << 100.0 << -120 << 85.0;
    QTest::newRow("stops at the video length") << 1.0 << 500.0 << 120 << 600.0;
    QTest::newRow("stops at 0") << 1.0 << 100.0 << -120 << 0.0;
    QTest::newRow("zoomed out, far past the end") << 0.01 << 10.0 << 120 << 600.0;
}

void TstTimelineWidget::wheelScrollLimits()
{
    QFETCH(double, pps);
    QFETCH(double, start);
    QFETCH(int, delta);
    QFETCH(double, expected);
    m_widget->setPps(pps);
    m_widget->setOffset(start);
    m_widget->applyWheel(delta, Qt::NoModifier);
    QVERIFY2(qAbs(m_widget->offset() - expected) < 1e-9, qPrintable(QString::number(m_widget->offset())));
}

void TstTimelineWidget::wheelOtherModifiers()
{
    m_widget->setOffset(100.0);
    for (Qt::KeyboardModifiers mods : { Qt::KeyboardModifiers(Qt::AltModifier), Qt::KeyboardModifiers(Qt::ShiftModifier), Qt::ControlModifier | Qt::ShiftModifier }) {
        m_widget->applyWheel(120, mods);
        QCOMPARE(m_widget->pps(), 1.0);
        QCOMPARE(m_widget->offset(), 100.0);
    }
}

void TstTimelineWidget::segmentGeometry()
{
    Label *l = m_timeline->labels().at(0);
    Segment *s = m_widget->history()->addSegment(l, 10.0, 20.0);
    const OVTimelineLabelPainter *p = m_widget->labelPainters().at(0);
    const OVTimeMapping m = m_widget->mapping();
    const QRect bar = p->barRect(m, s->start(), s->end(), 0.0);
    QCOMPARE(bar.left(), int(m.left) + 10);
    QCOMPARE(bar.right() + 1, int(m.left) + 20);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 15.0)), s);
    QCOMPARE(m_widget->segmentAt(pointAt(1, 15.0)), nullptr);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 25.0)), nullptr);
}

void TstTimelineWidget::cursorGrabByMouse_data()
{
    QTest::addColumn<int>("dx");
    QTest::addColumn<bool>("seeks");
    QTest::newRow("two pixels right") << 2 << true;
    QTest::newRow("two pixels left") << -2 << true;
    QTest::newRow("three pixels right") << 3 << false;
    QTest::newRow("three pixels left") << -3 << false;
}

void TstTimelineWidget::cursorGrabByMouse()
{
    QFETCH(int, dx);
    QFETCH(bool, seeks);
    m_widget->setPps(2.0);
    m_project->state()->setCurrentPos(50.0);
    QSignalSpy seek(m_widget, &OVTimelineWidget::seekRequested);
    const QPoint press = pointAt(2, 50.0) + QPoint(dx, 0);
    QTest::mousePress(m_widget, Qt::LeftButton, Qt::NoModifier, press);
    QTest::mouseMove(m_widget, press + QPoint(40, 0));
    QMouseEvent move(QEvent::MouseMove, press + QPoint(40, 0), m_widget->mapToGlobal(press + QPoint(40, 0)), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &move);
    QTest::mouseRelease(m_widget, Qt::LeftButton, Qt::NoModifier, press + QPoint(40, 0));
    QCOMPARE(seek.isEmpty(), !seeks);
    if (seeks)
        QVERIFY(qAbs(seek.last().at(0).toDouble() - (50.0 + (dx + 40) / 2.0)) < 1.0);
    else
        QCOMPARE(m_widget->offset(), 0.0); // a pan, clamped at the start
}

void TstTimelineWidget::selectionByClickAndRubberBand()
{
    OVTimelineHistory *h = m_widget->history();
    Segment *a = h->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    Segment *b = h->addSegment(m_timeline->labels().at(1), 30.0, 40.0);
    Segment *c = h->addSegment(m_timeline->labels().at(2), 100.0, 110.0);
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(0, 15.0));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ a });
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(1, 35.0));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ b });

    // Shift-drag a band over rows 0-1 from 5 s to 50 s: a and b, not c.
    const QPoint from = pointAt(0, 5.0);
    const QPoint to = pointAt(1, 50.0);
    QTest::mousePress(m_widget, Qt::LeftButton, Qt::ShiftModifier, from);
    QMouseEvent move(QEvent::MouseMove, to, m_widget->mapToGlobal(to), Qt::NoButton, Qt::LeftButton, Qt::ShiftModifier);
    QApplication::sendEvent(m_widget, &move);
    QTest::mouseRelease(m_widget, Qt::LeftButton, Qt::ShiftModifier, to);
    QList<Segment *> selected = m_widget->selectedSegments();
    QCOMPARE(selected.size(), 2);
    QVERIFY(selected.contains(a) && selected.contains(b) && !selected.contains(c));

    // A selected segment that is deleted leaves the selection.
    delete a;
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ b });
}

void TstTimelineWidget::dragOneSegment()
{
    OVTimelineHistory *h = m_widget->history();
    Segment *s = h->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    const Id id = s->id();
    h->undoStack()->clear();
    std::unique_ptr<QMimeData> data(m_widget->createDragData(s));
    QCOMPARE(data->data(QStringLiteral("segptr")), QByteArray::number(quintptr(s)));
    QVERIFY(!data->hasFormat(QStringLiteral("segptrlist")));

    const QPoint target = pointAt(2, 300.0);
    // As a real drag: enter, then drop.
    QDragEnterEvent enter(target, Qt::MoveAction, data.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(target, Qt::MoveAction, data.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &drop);
    QCOMPARE(m_timeline->labels().at(0)->segmentCount(), 0);
    QCOMPARE(m_timeline->labels().at(2)->segmentCount(), 1);
    Segment *moved = m_timeline->labels().at(2)->segments().first();
    QCOMPARE(moved->id(), id);
    QCOMPARE(moved->start(), 10.0); // times stay
    QCOMPARE(moved->end(), 20.0);
    QCOMPARE(h->undoStack()->count(), 1);
    h->undoStack()->undo();
    QCOMPARE(segmentList(m_timeline), QStringList{ "0:10-20" });
    QCOMPARE(m_timeline->labels().at(0)->segments().first()->id(), id);
    QVERIFY(OVTimelineHistory::checkConsistency(m_project).isEmpty());
}

void TstTimelineWidget::dragSeveralSegments()
{
    OVTimelineHistory *h = m_widget->history();
    Segment *a = h->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    Segment *b = h->addSegment(m_timeline->labels().at(1), 30.0, 40.0);
    Segment *c = h->addSegment(m_timeline->labels().at(0), 50.0, 60.0);
    Segment *other = h->addSegment(m_timeline->labels().at(0), 70.0, 80.0);
    m_widget->selectSegments({ a, b, c });
    h->undoStack()->clear();

    std::unique_ptr<QMimeData> data(m_widget->createDragData(b));
    QCOMPARE(data->data(QStringLiteral("segptr")), QByteArray::number(quintptr(b)));
    QList<QByteArray> listed = data->data(QStringLiteral("segptrlist")).split(',');
    std::sort(listed.begin(), listed.end());
    QList<QByteArray> wanted{ QByteArray::number(quintptr(a)), QByteArray::number(quintptr(b)), QByteArray::number(quintptr(c)) };
    std::sort(wanted.begin(), wanted.end());
    QCOMPARE(listed, wanted);

    const QPoint target = pointAt(3, 5.0);
    QDragEnterEvent enter(target, Qt::MoveAction, data.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(target, Qt::MoveAction, data.get(), Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &drop);
    QCOMPARE(segmentList(m_timeline), (QStringList{ "0:70-80", "3:10-20", "3:30-40", "3:50-60" }));
    QCOMPARE(other->label(), m_timeline->labels().at(0));
    QCOMPARE(h->undoStack()->count(), 1); // one gesture, one step
    h->undoStack()->undo();
    QCOMPARE(segmentList(m_timeline), (QStringList{ "0:10-20", "0:50-60", "0:70-80", "1:30-40" }));
    h->undoStack()->redo();
    QCOMPARE(segmentList(m_timeline), (QStringList{ "0:70-80", "3:10-20", "3:30-40", "3:50-60" }));
    QVERIFY(OVTimelineHistory::checkConsistency(m_project).isEmpty());
}

void TstTimelineWidget::dropAcceptsOnlySegPtr()
{
    Segment *s = m_widget->history()->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    QMimeData listOnly;
    listOnly.setData(QStringLiteral("segptrlist"), QByteArray::number(quintptr(s)));
    const QPoint target = pointAt(1, 5.0);
    QDragEnterEvent enter(target, Qt::MoveAction, &listOnly, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &enter);
    QVERIFY(!enter.isAccepted());
    QDropEvent drop(target, Qt::MoveAction, &listOnly, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_widget, &drop);
    QVERIFY(!m_widget->dropSegments(&listOnly, target));
    QCOMPARE(s->label(), m_timeline->labels().at(0));

    // An address that names no living segment moves nothing.
    QMimeData stale;
    stale.setData(QStringLiteral("segptr"), QByteArray::number(quintptr(s) + 8));
    QVERIFY(!m_widget->dropSegments(&stale, target));
    QCOMPARE(s->label(), m_timeline->labels().at(0));
}

void TstTimelineWidget::openSegmentFollowsPosition()
{
    m_project->state()->setCurrentPos(30.0);
    Segment *s = m_widget->history()->addSegment(m_timeline->labels().at(0), 20.0, Segment::OpenEnd);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 25.0)), s);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 35.0)), nullptr);
    QVERIFY(OVTimelineLabelPainter::segmentToolTip(s, 30.0).contains(QStringLiteral("End: 00:00:30.000")));
    m_project->state()->setCurrentPos(40.0);
    QCOMPARE(m_widget->currentPos(), 40.0);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 35.0)), s);
    QCOMPARE(OVTimelineLabelPainter::segmentInfo(s, 40.0), QStringLiteral("Time: 00:00:20.000 - 00:00:40.000\nAuthor: alice"));
    s->setDescription(QStringLiteral("note"));
    QCOMPARE(OVTimelineLabelPainter::segmentToolTip(s, 40.0), QStringLiteral("Start: 00:00:20.000\nEnd: 00:00:40.000\nAuthor: alice\nDesc: note"));
}

void TstTimelineWidget::labelingMessages()
{
    Project noVideo;
    newProject(&noVideo, 0.0);
    m_widget->setProject(&noVideo);
    QCOMPARE(m_widget->labelingMessage(), QStringLiteral("Labeling is disabled. Add video to the project first."));
    QSignalSpy clicked(m_widget, &OVTimelineWidget::emptyTimelineClicked);
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(0, 100.0));
    QCOMPARE(clicked.size(), 0);
    QCOMPARE(m_widget->labelingMessage(), QStringLiteral("Labeling is disabled. Add video to the project first."));
    noVideo.setVideoLength(120.0);
    QCOMPARE(m_widget->labelingMessage(), QStringLiteral("Labeling is disabled. Click anywhere on timelines to enable."));
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(0, 100.0));
    QCOMPARE(clicked.size(), 1);
    m_widget->setLabelingEnabled(true);
    QCOMPARE(m_widget->labelingMessage(), QString());
    m_widget->setProject(m_project);
}

void TstTimelineWidget::labelReorderIsOneStep()
{
    const QStringList before{ "Label 1", "Label 2", "Label 3", "Label 4" };
    auto names = [this] {
        QStringList n;
        for (const Label *l : m_timeline->labels())
            n << l->name();
        return n;
    };
    QCOMPARE(names(), before);
    // Drag the first name down over rows 1, 2 and 3.
    const QPoint press = m_widget->labelPainters().at(0)->nameRect().center();
    QTest::mousePress(m_widget, Qt::LeftButton, Qt::NoModifier, press);
    for (int row = 1; row <= 3; ++row) {
        const QPoint p(press.x(), press.y() + row * OVTimelineWidget::RowHeight);
        QMouseEvent move(QEvent::MouseMove, p, m_widget->mapToGlobal(p), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_widget, &move);
    }
    QTest::mouseRelease(m_widget, Qt::LeftButton, Qt::NoModifier, QPoint(press.x(), press.y() + 3 * OVTimelineWidget::RowHeight));
    QCOMPARE(names(), (QStringList{ "Label 2", "Label 3", "Label 4", "Label 1" }));
    for (int i = 0; i < 4; ++i)
        QCOMPARE(m_timeline->labels().at(i)->sortOrder(), i);
    QCOMPARE(m_widget->history()->undoStack()->count(), 1);
    m_widget->history()->undoStack()->undo();
    QCOMPARE(names(), before);
}

void TstTimelineWidget::resizeIsOneStep()
{
    OVTimelineHistory *h = m_widget->history();
    m_widget->setPps(4.0);
    Segment *s = h->addSegment(m_timeline->labels().at(1), 10.0, 20.0);
    h->undoStack()->clear();
    const QPoint press = pointAt(1, 20.0) - QPoint(1, 0); // on the end edge
    QTest::mousePress(m_widget, Qt::LeftButton, Qt::NoModifier, press);
    for (int dx : { 8, 16, 24, 40 }) {
        const QPoint p = press + QPoint(dx, 0);
        QMouseEvent move(QEvent::MouseMove, p, m_widget->mapToGlobal(p), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_widget, &move);
    }
    QTest::mouseRelease(m_widget, Qt::LeftButton, Qt::NoModifier, press + QPoint(40, 0));
    QCOMPARE(s->start(), 10.0);
    QVERIFY(qAbs(s->end() - 29.75) < 0.26);
    QCOMPARE(h->undoStack()->count(), 1);
    h->undoStack()->undo();
    QCOMPARE(segmentList(m_timeline), QStringList{ "1:10-20" });
}

void TstTimelineWidget::otherTimelinesAreReadOnly()
{
    Timeline *bob = m_project->createTimeline(QStringLiteral("bob"));
    m_project->state()->setDisplayedTimelineUsers({ QStringLiteral("bob") });
    QCOMPARE(m_widget->labelPainters().size(), 8);
    QVERIFY(m_widget->labelPainters().at(0)->isEditable());
    QVERIFY(!m_widget->labelPainters().at(4)->isEditable());
    Segment *theirs = new Segment(10.0, 20.0, BaseNode::newId());
    bob->labels().at(0)->addSegment(theirs);
    // Their segment cannot be dropped into our rows, nor ours into theirs, nor deleted from here.
    std::unique_ptr<QMimeData> data(m_widget->createDragData(theirs));
    QVERIFY(!m_widget->dropSegments(data.get(), pointAt(1, 5.0)));
    QVERIFY(!m_widget->deleteSegments({ theirs }));
    Segment *ours = m_widget->history()->addSegment(m_timeline->labels().at(0), 1.0, 2.0);
    data.reset(m_widget->createDragData(ours));
    QVERIFY(!m_widget->dropSegments(data.get(), pointAt(5, 5.0)));
    QCOMPARE(theirs->label(), bob->labels().at(0));
    QCOMPARE(ours->label(), m_timeline->labels().at(0));
}

void TstTimelineWidget::requireModifierGuardsClicks()
{
    Segment *s = m_widget->history()->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    QTest::ignoreMessage(QtDebugMsg, "TimelineWidget::requireModifier set to: true");
    m_widget->setRequireModifier(true);
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(0, 15.0));
    QVERIFY(m_widget->selectedSegments().isEmpty());
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::ControlModifier, pointAt(0, 15.0));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ s });
    m_widget->setRequireModifier(false);
    m_widget->clearSelection();
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(0, 15.0));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ s });
}

QTEST_MAIN(TstTimelineWidget)
#include "tst_timelinewidget.moc"
