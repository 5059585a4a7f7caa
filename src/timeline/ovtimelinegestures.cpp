#include "timeline/ovtimelinegestures.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinelabelpainter.h"
#include "timeline/ovtimelinewidget.h"

#include <QApplication>
#include <QDrag>
#include <QDropEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QScrollBar>

#include <algorithm>
#include <cmath>

using namespace OVProject;

namespace {
constexpr int NameEdgeGrabPixels = 3;

bool nearNameEdge(const QPoint &pos, const OVTimeMapping &m) { return std::abs(pos.x() - int(m.left)) < NameEdgeGrabPixels; }
} // namespace

OVTimelineGestures::OVTimelineGestures(OVTimelineWidget *widget)
    : QObject(widget)
    , m_w(widget)
{
}

void OVTimelineGestures::reset()
{
    closeStep();
    m_gesture = None;
    m_grabbed = nullptr;
    m_resizeEdge = OVTimelineLabelPainter::NoEdge;
    m_w->m_sortLabel = nullptr;
    m_w->setRubberBand(QRect());
}

void OVTimelineGestures::openStep(const QString &text)
{
    if (m_stepOpen)
        return;
    m_w->history()->beginGesture(text);
    m_stepOpen = true;
}

void OVTimelineGestures::closeStep()
{
    if (!m_stepOpen)
        return;
    m_stepOpen = false;
    m_w->history()->endGesture();
}

void OVTimelineGestures::press(QMouseEvent *event)
{
    m_gesture = None;
    m_press = QPoint();
    Project *project = m_w->project();
    if (!project)
        return;
    const QPoint pos = event->position().toPoint();
    if (!m_w->rowsRect().contains(pos))
        return;
    m_w->setFocus(Qt::MouseFocusReason);
    if (!m_w->isLabelingEnabled() && project->videoLength() > 0.0)
        Q_EMIT m_w->emptyTimelineClicked();

    const OVTimeMapping m = m_w->mapping();
    const double now = m_w->currentPos();
    OVTimelineLabelPainter *painter = m_w->painterAt(pos);
    if (event->button() == Qt::RightButton) {
        if (painter)
            painter->rightClicked(pos, event->globalPosition().toPoint(), m, now);
        else // below the last row
            Q_EMIT m_w->labelRightClicked(Id(), nullptr, event->globalPosition().toPoint());
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    // The column edge gives way to a segment just right of it (one coded at 0 s).
    if (nearNameEdge(pos, m) && !(pos.x() >= int(m.left) && m_w->segmentAt(pos))) {
        m_gesture = NameResize;
        return;
    }
    if (painter && painter->nameRect().contains(pos)) {
        if (painter->isEditable() && painter->label()) {
            m_gesture = LabelSort;
            openStep(tr("Move label"));
            painter->beginSortDrag();
        }
        return;
    }

    // While another view owns the keyboard (transcribing), editing clicks need Control, so a
    // stray click on the rows only seeks or pans.
    Qt::KeyboardModifiers modifiers = event->modifiers();
    bool editing = true;
    if (m_w->requireModifier()) {
        editing = modifiers & Qt::ControlModifier;
        modifiers &= ~Qt::ControlModifier;
    }
    Segment *segment = painter && editing ? painter->segmentAt(pos.x(), m, now) : nullptr;
    m_press = pos;
    if (!segment) {
        if (m.grabsCursor(pos.x(), now)) {
            m_gesture = CursorDrag;
            return;
        }
        if (editing && (modifiers & Qt::ShiftModifier)) {
            m_gesture = RubberBand;
            m_w->setRubberBand(QRect(pos, QSize(1, 1)));
        } else {
            m_gesture = Pan;
            m_pressOffset = m_w->offset();
            m_pressVerticalScroll = m_w->verticalScroll();
            if (editing && !(modifiers & Qt::ControlModifier))
                m_w->clearSelection();
        }
        return;
    }

    m_grabbed = segment;
    m_gesture = SegmentHold;
    if (modifiers & Qt::ControlModifier) {
        painter->toggleSelection(segment);
    } else if (modifiers & Qt::ShiftModifier) {
        m_gesture = RubberBand;
        m_w->setRubberBand(QRect(pos, QSize(1, 1)));
        m_w->addToSelection(segment);
    } else {
        // A press on a selected segment keeps the selection so that all of it can be dragged.
        if (!m_w->isSelected(segment))
            m_w->selectSegments({ segment });
        if (painter->isEditable()) {
            m_resizeEdge = painter->edgeAt(segment, pos.x(), m, now);
            if (m_resizeEdge != OVTimelineLabelPainter::NoEdge) {
                m_gesture = SegmentResize;
                openStep(tr("Resize segment"));
            }
        }
    }
    m_w->update();
}

void OVTimelineGestures::hover(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    const OVTimeMapping m = m_w->mapping();
    const double now = m_w->currentPos();
    Segment *hovered = m_w->segmentAt(pos);
    m_w->setHovered(hovered, pos);
    OVTimelineLabelPainter *p = m_w->painterAt(pos);
    const bool edge = (nearNameEdge(pos, m) && !(pos.x() >= int(m.left) && hovered))
        || (p && p->isEditable() && hovered && p->edgeAt(hovered, pos.x(), m, now) != OVTimelineLabelPainter::NoEdge)
        || (!hovered && m.grabsCursor(pos.x(), now));
    m_w->setCursor(edge ? Qt::SizeHorCursor : Qt::ArrowCursor);
}

void OVTimelineGestures::move(QMouseEvent *event)
{
    Project *project = m_w->project();
    if (!project)
        return;
    if (event->buttons() == Qt::NoButton) {
        hover(event);
        return;
    }
    const QPoint pos = event->position().toPoint();
    m_w->m_hoverPos = pos;
    const OVTimeMapping m = m_w->mapping();
    switch (m_gesture) {
    case CursorDrag: {
        double t = std::max(0.0, m.timeAt(pos.x()));
        if (project->videoLength() > 0.0)
            t = std::min(t, project->videoLength());
        Q_EMIT m_w->seekRequested(t);
        return;
    }
    case NameResize:
        m_w->setNameWidth(pos.x() - m_w->rowsRect().left());
        return;
    case LabelSort:
        if (OVTimelineLabelPainter *p = m_w->painterForLabel(m_w->m_sortLabel))
            p->moveSortDrag();
        return;
    case RubberBand: {
        const QRect band = QRect(m_press, pos).normalized();
        m_w->setRubberBand(band);
        QList<Segment *> touched;
        for (OVTimelineLabelPainter *p : m_w->labelPainters())
            touched += p->segmentsIn(band, m, m_w->currentPos());
        m_w->selectSegments(touched);
        return;
    }
    case Pan: {
        double offset = m_pressOffset - (pos.x() - m_press.x()) / m_w->pps();
        offset = std::max(0.0, std::min(offset, std::max(0.0, project->videoLength())));
        m_w->setVerticalScroll(m_pressVerticalScroll - (pos.y() - m_press.y()));
        m_w->setOffset(offset, true);
        return;
    }
    case SegmentResize: {
        Segment *s = m_grabbed;
        if (!s || !(event->buttons() & Qt::LeftButton))
            return;
        const double t = std::max(0.0, m.timeAt(pos.x()));
        if (m_resizeEdge == OVTimelineLabelPainter::StartEdge)
            m_w->history()->setSegmentTimes(s, std::min(t, s->end()), s->end());
        else
            m_w->history()->setSegmentTimes(s, s->start(), std::max(t, s->start()));
        return;
    }
    case SegmentHold: {
        Segment *s = m_grabbed;
        if (!s || !(event->buttons() & Qt::LeftButton))
            return;
        if ((pos - m_press).manhattanLength() < QApplication::startDragDistance())
            return;
        OVTimelineLabelPainter *from = m_w->painterForLabel(s->label());
        if (!from || !from->isEditable())
            return;
        auto *drag = new QDrag(m_w);
        drag->setMimeData(m_w->createDragData(s));
        connect(drag, &QObject::destroyed, m_w, &OVTimelineWidget::onDragFinished);
        drag->exec(Qt::MoveAction);
        return;
    }
    case None:
        return;
    }
}

void OVTimelineGestures::release(QMouseEvent *event)
{
    m_w->setRubberBand(QRect());
    if (!m_w->project())
        return;
    const QPoint pos = event->position().toPoint();
    const bool clicked = (pos - m_press).manhattanLength() < QApplication::startDragDistance();
    const Qt::KeyboardModifiers plain = m_w->requireModifier() ? Qt::KeyboardModifiers(Qt::ControlModifier) : Qt::KeyboardModifiers(Qt::NoModifier);
    if (m_grabbed && m_gesture == SegmentHold && clicked && event->modifiers() == plain)
        m_w->selectSegments({ m_grabbed.data() });
    if (m_gesture == LabelSort) {
        if (OVTimelineLabelPainter *p = m_w->painterForLabel(m_w->m_sortLabel))
            p->finishSortDrag();
        m_w->m_sortLabel = nullptr;
    }
    m_gesture = None;
    m_press = QPoint();
    m_grabbed = nullptr;
    m_resizeEdge = OVTimelineLabelPainter::NoEdge;
    closeStep();
    Q_EMIT m_w->editFinished();
    m_w->update();
}

void OVTimelineGestures::doubleClick(QMouseEvent *event)
{
    if (!m_w->project() || event->button() != Qt::LeftButton)
        return;
    const QPoint pos = event->position().toPoint();
    if (OVTimelineLabelPainter *p = m_w->painterAt(pos))
        p->doubleClicked(pos, event->globalPosition().toPoint(), m_w->mapping(), m_w->currentPos());
}

void OVTimelineGestures::drop(QDropEvent *event)
{
    const bool moved = m_w->dropSegments(event->mimeData(), event->position().toPoint());
    event->setDropAction(Qt::MoveAction);
    event->accept();
    if (moved)
        m_w->update();
    m_gesture = None;
    m_press = QPoint();
    m_grabbed = nullptr;
    Q_EMIT m_w->editFinished();
}

void OVTimelineGestures::onDragFinished()
{
    m_gesture = None;
    m_press = QPoint();
    m_grabbed = nullptr;
    m_resizeEdge = OVTimelineLabelPainter::NoEdge;
    Q_EMIT m_w->editFinished();
    m_w->update();
}
