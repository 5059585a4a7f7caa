#pragma once

#include "project/basenode.h"

#include <QObject>
#include <QPoint>
#include <QPointer>

class QDropEvent;
class QMouseEvent;
class OVTimelineWidget;

namespace OVProject {
class Label;
class Segment;
} // namespace OVProject

// The mouse gestures of the timeline: dragging the cursor (seek), panning, the rubber band,
// resizing a segment, dragging segments to another row, dragging a label name to reorder, and
// resizing the name column; plus the clicks that select. A gesture that changes the model is one
// step of the history, opened at the press and closed at the release.
class OVTimelineGestures : public QObject
{
    Q_OBJECT
public:
    explicit OVTimelineGestures(OVTimelineWidget *widget);

    void press(QMouseEvent *event);
    void move(QMouseEvent *event);
    void release(QMouseEvent *event);
    void doubleClick(QMouseEvent *event);
    void drop(QDropEvent *event);
    // Forgets the gesture under way (the project changed).
    void reset();

    // A segment is held by the press: the info box stays hidden.
    bool isHoldingSegment() const { return !m_grabbed.isNull(); }

public Q_SLOTS:
    void onDragFinished();

private:
    enum Gesture { None, CursorDrag, Pan, RubberBand, SegmentHold, SegmentResize, LabelSort, NameResize };

    void hover(QMouseEvent *event);
    void openStep(const QString &text);
    void closeStep();

    OVTimelineWidget *m_w;
    Gesture m_gesture = None;
    QPoint m_press;
    double m_pressOffset = 0.0;
    int m_pressVerticalScroll = 0;
    // Guarded: undo may delete the segment while the button is held.
    QPointer<OVProject::Segment> m_grabbed;
    int m_resizeEdge = 0;
    bool m_stepOpen = false;
};
