#pragma once

#include "project/basenode.h"
#include "project/label.h"
#include "timeline/ovtimemapping.h"

#include <QColor>
#include <QFont>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSet>

class QPainter;

namespace OVProject {
class Label;
class Segment;
class Timeline;
} // namespace OVProject

// Draws and hit-tests one label row of the timeline: the name box at the row's left end and the
// label's segments as bars. Only the segments in the visible time window are ever visited.
class OVTimelineLabelPainter : public QObject
{
    Q_OBJECT
public:
    // Parts of the name box, as reported by labelNameDoubleClicked().
    enum NameArea { NameText = 0, NameKey = 1, NameColor = 2 };
    enum Edge { NoEdge = 0, StartEdge = 1, EndEdge = 2 };
    // Narrowest bar: a segment of no length (coded while paused, or clamped at 0) must still be
    // seen and hit by the mouse.
    static constexpr int MinBarPixels = 2;

    OVTimelineLabelPainter(OVProject::Label *label, bool editable, QObject *parent = nullptr);

    OVProject::Label *label() const { return m_label; }
    OVProject::Id labelId() const { return m_labelId; }
    OVProject::Timeline *timeline() const;
    // Rows of the active timeline can be edited; the others are shown dimmed.
    bool isEditable() const { return m_editable; }

    void setGeometry(const QRect &row, int nameWidth);
    QRect rowRect() const { return m_rowRect; }
    QRect nameRect() const { return m_nameRect; }
    // Where bars are drawn (the row right of the name column, shrunk by the bar margin).
    QRect barRect(const OVTimeMapping &m, double start, double end, double currentPos) const;

    struct PaintContext
    {
        OVTimeMapping mapping;
        double currentPos = 0.0;
        QRect clip;
        const QSet<OVProject::Id> *selection = nullptr;
        OVProject::Id highlighted;
        // A label whose row is flashing (a key press of it coded nothing).
        OVProject::Id flashed;
        int rowIndex = 0;
    };
    void paint(QPainter &p, const PaintContext &c) const;

    // The top-most (latest starting) segment under x, or null.
    OVProject::Segment *segmentAt(int x, const OVTimeMapping &m, double currentPos) const;
    // Which end of `segment` lies within a few pixels of x.
    Edge edgeAt(const OVProject::Segment *segment, int x, const OVTimeMapping &m, double currentPos) const;
    // Segments whose bars meet the rectangle.
    QList<OVProject::Segment *> segmentsIn(const QRect &r, const OVTimeMapping &m, double currentPos) const;
    NameArea nameAreaAt(const QPoint &pos) const;

    // Gesture entry points used by the widget; they announce through the signals below.
    void doubleClicked(const QPoint &pos, const QPoint &globalPos, const OVTimeMapping &m, double currentPos);
    void rightClicked(const QPoint &pos, const QPoint &globalPos, const OVTimeMapping &m, double currentPos);
    void toggleSelection(OVProject::Segment *segment);
    void beginSortDrag();
    void moveSortDrag();
    void finishSortDrag();

    static QString segmentToolTip(const OVProject::Segment *segment, double currentPos);
    static QString segmentInfo(const OVProject::Segment *segment, double currentPos);

Q_SIGNALS:
    void labelDoubleClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void labelRightClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void labelNameRightClicked(OVProject::Id label, QPoint pos);
    void seekRequested(double time);
    void labelNameDoubleClicked(OVProject::Id label, QPoint pos, int area);
    void selectionToggled(OVProject::Id segment);
    void dragSortStarted();
    void dragSortMoved();
    void dragSortFinished();

private:
    void drawName(QPainter &p) const;

    QPointer<OVProject::Label> m_label;
    OVProject::Id m_labelId;
    bool m_editable;
    QRect m_rowRect;
    QRect m_nameRect;
    QFont m_nameFont;
    QFont m_barFont;
};
