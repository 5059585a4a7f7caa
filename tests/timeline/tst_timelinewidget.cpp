#include "timelinefixture.h"

#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinelabelpainter.h"
#include "timeline/ovtimelinewidget.h"

#include <QImage>
#include <QMimeData>
#include <QTimer>
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
    void wheelZoom();
    void wheelScrollLimits_data();
    void wheelScrollLimits();
    void segmentGeometry();
    void cursorGrabByMouse_data();
    void cursorGrabByMouse();
    void selectionByClickAndRubberBand();
    void dragSegments_data();
    void dragSegments();
    void dropAcceptsOnlySegPtr();
    void zeroLengthSegmentsShowAndSelect_data();
    void zeroLengthSegmentsShowAndSelect();
    void nothingRunsWithoutPositions();
    void labelingMessages();
    void labelReorderIsOneStep();
    void resizeIsOneStep();
    void otherTimelinesAreReadOnly();

private:
    QPoint pointAt(int row, double time) const;
    void moveTo(const QPoint &p, Qt::KeyboardModifiers mods = Qt::NoModifier) const
    {
        QMouseEvent move(QEvent::MouseMove, p, m_widget->mapToGlobal(p), Qt::NoButton, Qt::LeftButton, mods);
        QApplication::sendEvent(m_widget, &move);
    }
    // A real drag: enter, then drop. Returns whether the enter was accepted.
    bool dragDrop(QMimeData *data, const QPoint &target) const
    {
        QDragEnterEvent enter(target, Qt::MoveAction, data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_widget, &enter);
        QDropEvent drop(target, Qt::MoveAction, data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_widget, &drop);
        return enter.isAccepted();
    }

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
    QTest::addColumn<int>("mods");
    QTest::newRow("150 px forward") << 1.0 << 0.0 << 120 << 150.0 << 0;
    QTest::newRow("150 px back, zoomed in") << 10.0 << 100.0 << -120 << 85.0 << 0;
    QTest::newRow("stops at the video length") << 1.0 << 500.0 << 120 << 600.0 << 0;
    QTest::newRow("stops at 0") << 1.0 << 100.0 << -120 << 0.0 << 0;
    QTest::newRow("shift does nothing") << 1.0 << 100.0 << 120 << 100.0 << int(Qt::ShiftModifier);
    QTest::newRow("control+shift does nothing") << 1.0 << 100.0 << 120 << 100.0 << int(Qt::ControlModifier | Qt::ShiftModifier);
}

void TstTimelineWidget::wheelScrollLimits()
{
    QFETCH(double, pps);
    QFETCH(double, start);
    QFETCH(int, delta);
    QFETCH(double, expected);
    QFETCH(int, mods);
    m_widget->setPps(pps);
    m_widget->setOffset(start);
    m_widget->applyWheel(delta, Qt::KeyboardModifiers(mods));
    QVERIFY2(qAbs(m_widget->offset() - expected) < 1e-9, qPrintable(QString::number(m_widget->offset())));
    QCOMPARE(m_widget->pps(), pps);
}

void TstTimelineWidget::segmentGeometry()
{
    m_project->state()->setCurrentPos(30.0);
    Segment *s = m_widget->history()->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    Segment *open = m_widget->history()->addSegment(m_timeline->labels().at(1), 20.0, Segment::OpenEnd);
    const OVTimeMapping m = m_widget->mapping();
    const QRect bar = m_widget->labelPainters().at(0)->barRect(m, s->start(), s->end(), 0.0);
    QCOMPARE(bar.left(), int(m.left) + 10);
    QCOMPARE(bar.right() + 1, int(m.left) + 20);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 15.0)), s);
    QCOMPARE(m_widget->segmentAt(pointAt(1, 15.0)), nullptr);
    QCOMPARE(m_widget->segmentAt(pointAt(0, 25.0)), nullptr);

    // An open segment ends at the current position and follows it.
    QCOMPARE(m_widget->segmentAt(pointAt(1, 25.0)), open);
    QCOMPARE(m_widget->segmentAt(pointAt(1, 35.0)), nullptr);
    QVERIFY(OVTimelineLabelPainter::segmentToolTip(open, 30.0).contains(QStringLiteral("End: 00:00:30.000")));
    m_project->state()->setCurrentPos(40.0);
    QCOMPARE(m_widget->segmentAt(pointAt(1, 35.0)), open);
    QCOMPARE(OVTimelineLabelPainter::segmentInfo(open, 40.0), QStringLiteral("Time: 00:00:20.000 - 00:00:40.000\nAuthor: alice"));
    open->setDescription(QStringLiteral("note"));
    QCOMPARE(OVTimelineLabelPainter::segmentToolTip(open, 40.0), QStringLiteral("Start: 00:00:20.000\nEnd: 00:00:40.000\nAuthor: alice\nDesc: note"));
}

void TstTimelineWidget::cursorGrabByMouse_data()
{
    QTest::addColumn<int>("dx");
    QTest::addColumn<bool>("seeks");
    QTest::newRow("two pixels right") << 2 << true;
    QTest::newRow("three pixels right") << 3 << false;
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
    moveTo(press + QPoint(40, 0));
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
    moveTo(to, Qt::ShiftModifier);
    QTest::mouseRelease(m_widget, Qt::LeftButton, Qt::ShiftModifier, to);
    QList<Segment *> selected = m_widget->selectedSegments();
    QCOMPARE(selected.size(), 2);
    QVERIFY(selected.contains(a) && selected.contains(b) && !selected.contains(c));

    // A selected segment that is deleted leaves the selection.
    delete a;
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ b });

    // With a modifier required, a plain click selects nothing.
    m_widget->clearSelection();
    m_widget->setRequireModifier(true);
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, pointAt(1, 35.0));
    QVERIFY(m_widget->selectedSegments().isEmpty());
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::ControlModifier, pointAt(1, 35.0));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ b });
}

void TstTimelineWidget::dragSegments_data()
{
    QTest::addColumn<QList<int>>("selected");
    QTest::addColumn<int>("dragged");
    QTest::addColumn<int>("row");
    QTest::addColumn<double>("time");
    QTest::addColumn<QStringList>("after");
    // Segments: 0 = 0:10-20, 1 = 1:30-40, 2 = 0:50-60, 3 = 0:70-80. Times stay, ids stay.
    QTest::newRow("one segment") << QList<int>{} << 0 << 2 << 300.0 << QStringList{ "0:50-60", "0:70-80", "1:30-40", "2:10-20" };
    QTest::newRow("the selection") << QList<int>{ 0, 1, 2 } << 1 << 3 << 5.0 << QStringList{ "0:70-80", "3:10-20", "3:30-40", "3:50-60" };
}

void TstTimelineWidget::dragSegments()
{
    QFETCH(QList<int>, selected);
    QFETCH(int, dragged);
    QFETCH(int, row);
    QFETCH(double, time);
    QFETCH(QStringList, after);
    OVTimelineHistory *h = m_widget->history();
    QList<Segment *> segs;
    const std::pair<int, double> where[] = { { 0, 10.0 }, { 1, 30.0 }, { 0, 50.0 }, { 0, 70.0 } };
    for (auto [label, start] : where)
        segs << h->addSegment(m_timeline->labels().at(label), start, start + 10.0);
    QList<Segment *> selection;
    for (int i : selected)
        selection << segs.at(i);
    m_widget->selectSegments(selection);
    h->undoStack()->clear();
    auto segmentLines = [this] { // id, times and text of every segment, whatever its label
        QStringList out = snapshot(m_timeline).filter(QStringLiteral("  S "));
        out.sort();
        return out;
    };
    const QStringList before = snapshot(m_timeline);
    const QStringList lines = segmentLines();

    std::unique_ptr<QMimeData> data(m_widget->createDragData(segs.at(dragged)));
    QCOMPARE(data->data(QStringLiteral("segptr")), segs.at(dragged)->id().toUtf8());
    QCOMPARE(data->hasFormat(QStringLiteral("segptrlist")), !selected.isEmpty());
    if (!selected.isEmpty()) {
        QList<QByteArray> ids = data->data(QStringLiteral("segptrlist")).split(',');
        QList<QByteArray> wanted;
        for (const Segment *s : selection)
            wanted << s->id().toUtf8();
        std::sort(ids.begin(), ids.end());
        std::sort(wanted.begin(), wanted.end());
        QCOMPARE(ids, wanted);
    }
    QVERIFY(dragDrop(data.get(), pointAt(row, time)));
    QCOMPARE(segmentList(m_timeline), after);
    QCOMPARE(segmentLines(), lines);
    QCOMPARE(h->undoStack()->count(), 1); // one gesture, one step
    h->undoStack()->undo();
    QCOMPARE(snapshot(m_timeline), before);
    h->undoStack()->redo();
    QCOMPARE(segmentList(m_timeline), after);
    QVERIFY(OVTimelineHistory::checkConsistency(m_project).isEmpty());
}

void TstTimelineWidget::dropAcceptsOnlySegPtr()
{
    OVTimelineHistory *h = m_widget->history();
    Segment *s = h->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    const Id id = s->id();
    QMimeData listOnly;
    listOnly.setData(QStringLiteral("segptrlist"), id.toUtf8());
    const QPoint target = pointAt(1, 5.0);
    QVERIFY(!dragDrop(&listOnly, target));
    QVERIFY(!m_widget->dropSegments(&listOnly, target));
    QCOMPARE(s->label(), m_timeline->labels().at(0));

    // The data names the segment, not the object: once it is deleted (and another segment made in
    // the memory it had) the drop moves nothing; once redo brings it back, the drop finds it.
    std::unique_ptr<QMimeData> data(m_widget->createDragData(s));
    h->undoStack()->undo();
    h->addSegment(m_timeline->labels().at(0), 30.0, 40.0);
    QVERIFY(!m_widget->dropSegments(data.get(), target));
    QCOMPARE(segmentList(m_timeline), QStringList{ "0:30-40" });
    h->undoStack()->undo();
    h->undoStack()->undo(); // nothing left to undo: the new step replaced the redo of `s`
    QVERIFY(!m_widget->dropSegments(data.get(), target));
    Segment *again = h->addSegment(m_timeline->labels().at(0), 10.0, 20.0);
    QVERIFY(again->id() != id);
    QVERIFY(!m_widget->dropSegments(data.get(), target));
    QCOMPARE(again->label(), m_timeline->labels().at(0));
}

void TstTimelineWidget::zeroLengthSegmentsShowAndSelect_data()
{
    QTest::addColumn<double>("pps");
    QTest::addColumn<double>("time");
    QTest::newRow("1 px/s") << 1.0 << 100.0;
    QTest::newRow("between pixels") << 3.0 << 33.4;
    QTest::newRow("at 0") << 1.0 << 0.0;
}

void TstTimelineWidget::zeroLengthSegmentsShowAndSelect()
{
    QFETCH(double, pps);
    QFETCH(double, time);
    m_widget->setPps(pps);
    Label *label = m_timeline->labels().at(1);
    Segment *s = m_widget->history()->addSegment(label, time, time); // a press while paused
    QVERIFY(s);
    const int x = m_widget->mapping().xAt(time);
    const QImage shot = m_widget->grab().toImage();
    const int y = pointAt(1, time).y();
    for (int dx = 0; dx < 2; ++dx) {
        // The bar's outline is a darker shade of the label's colour; the row is white or grey.
        const QColor seen = shot.pixelColor(QPoint(x + dx, y) * shot.devicePixelRatio());
        QVERIFY2(seen.saturation() > 60, qPrintable(QStringLiteral("x+%1 is %2").arg(dx).arg(seen.name())));
        QCOMPARE(m_widget->segmentAt(QPoint(x + dx, y)), s);
    }
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, QPoint(x + 1, y));
    QCOMPARE(m_widget->selectedSegments(), QList<Segment *>{ s });
}

void TstTimelineWidget::nothingRunsWithoutPositions()
{
    auto running = [this] {
        int n = 0;
        for (const QTimer *t : m_widget->findChildren<QTimer *>())
            n += t->isActive();
        return n;
    };
    QTRY_COMPARE(running(), 0);
    m_project->state()->setCurrentPos(12.0); // playback publishes a position
    QVERIFY(running() > 0);
    QTRY_COMPARE(running(), 0); // and the repaint it asked for is done
    QCOMPARE(m_widget->currentPos(), 12.0);
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
    // Drag the first name down over rows 1, 2 and 3.
    const QPoint press = m_widget->labelPainters().at(0)->nameRect().center();
    QTest::mousePress(m_widget, Qt::LeftButton, Qt::NoModifier, press);
    for (int row = 1; row <= 3; ++row)
        moveTo(QPoint(press.x(), press.y() + row * OVTimelineWidget::RowHeight));
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
    for (int dx : { 8, 16, 24, 40 })
        moveTo(press + QPoint(dx, 0));
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

QTEST_MAIN(TstTimelineWidget)
#include "tst_timelinewidget.moc"
