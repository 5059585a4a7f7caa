#pragma once

#include "project/basenode.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "timeline/ovtimemapping.h"

#include <QList>
#include <QPoint>
#include <QPointer>
#include <QRect>
#include <QSet>
#include <QWidget>

class QMimeData;
class QScrollBar;
class QSplitter;
class QTimer;

class OVTimelineGestures;
class OVTimelineHistory;
class OVTimelineLabelPainter;
class OVWaveformArea;

namespace OVProject {
class Label;
class Project;
class Segment;
class Timeline;
} // namespace OVProject

// The coding surface: one row per label of every displayed timeline, segments as bars on a
// common time axis, the playing-position cursor, and the waveform strip under a splitter.
// Rows of the active timeline are editable; every edit goes through the history(), and the mouse
// gestures that make them live in OVTimelineGestures. Keyboard coding is OVKeyboardCoder's.
class OVTimelineWidget : public QWidget
{
    Q_OBJECT
public:
    static constexpr int RowHeight = 24;
    static constexpr int DefaultNameWidth = 150;
    static constexpr double WheelScrollPixels = 150.0;
    static constexpr int WaveformTrackHeight = 48;

    explicit OVTimelineWidget(QWidget *parent = nullptr);
    ~OVTimelineWidget() override;

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    // The requests this view makes; they push to the project's one history.
    OVTimelineHistory *history() const { return m_history; }

    double pps() const { return m_pps; }
    void setPps(double pps);
    double offset() const { return m_offset; }
    void setOffset(double offset, bool relayout = true);
    bool requireModifier() const { return m_requireModifier; }
    void setRequireModifier(bool on);
    bool isLabelingEnabled() const { return m_labelingEnabled; }
    void setLabelingEnabled(bool on);
    // While not empty no key codes, and the rows say why (playback has stopped with an error:
    // the position no longer moves, so every press would code at a frozen time).
    void setCodingBlockedReason(const QString &reason);
    int nameWidth() const { return m_nameWidth; }
    void setNameWidth(int width);
    int verticalScroll() const { return m_verticalScroll; }
    void setVerticalScroll(int value);

    // The current time <-> pixel mapping in this widget's coordinates.
    OVTimeMapping mapping() const;
    double currentPos() const { return m_currentPos; }
    // The rows area (label rows only, without the waveform strip) in widget coordinates.
    QRect rowsRect() const;
    // Width of the time part of the rows, in pixels.
    int timeAreaWidth() const;
    // The strip under the rows that shows the recording's sound.
    OVWaveformArea *waveformArea() const { return m_waveforms; }
    // The strip's height as the user left it (or as it is, when never chosen). A height set here
    // holds through resizes and is not grown for the tracks that load: the user chose it.
    int waveformsHeight() const;
    void setWaveformsHeight(int height);

    // The timeline that coding and editing act on, or null.
    OVProject::Timeline *activeTimeline() const;
    QList<OVProject::Timeline *> displayedTimelines() const;
    const QList<OVTimelineLabelPainter *> &labelPainters() const { return m_painters; }
    OVTimelineLabelPainter *painterAt(const QPoint &pos) const;
    OVTimelineLabelPainter *painterForLabel(const OVProject::Label *label) const;
    OVProject::Segment *segmentAt(const QPoint &pos) const;

    // Selection (segments of any displayed timeline; edits apply to those of the active one). It
    // holds ids: a segment that undo deletes and redo re-creates is the same segment.
    QList<OVProject::Segment *> selectedSegments() const;
    bool isSelected(const OVProject::Segment *segment) const;
    void selectSegments(const QList<OVProject::Segment *> &segments, bool add = false);
    void selectSegmentIds(const QList<OVProject::Id> &ids);
    void addToSelection(OVProject::Segment *segment);
    void clearSelection();
    void setHighlightedSegment(const OVProject::Id &segmentId);
    // Draws attention to a label's row for a moment (a key press that coded nothing).
    void flashLabel(const OVProject::Id &labelId);
    OVProject::Id flashedLabel() const { return m_flashLabel; }

    // Set by the gestures while they run.
    void setRubberBand(const QRect &band);
    void setHovered(OVProject::Segment *segment, const QPoint &pos);
    // One wheel notch (sign of `delta`) with the given modifiers: zoom with Control, else scroll.
    void applyWheel(int delta, Qt::KeyboardModifiers modifiers);
    // The labeling message drawn over the rows, empty when none.
    QString labelingMessage() const;
    // The data of a drag of `grabbed` (with the other selected segments, if it is one of them).
    QMimeData *createDragData(OVProject::Segment *grabbed) const;
    // Segments named by drag data that still exist in a displayed timeline.
    QList<OVProject::Segment *> segmentsFromDragData(const QMimeData *data) const;
    // Moves the dropped segments into the row at `pos`; true when the model changed.
    bool dropSegments(const QMimeData *data, const QPoint &pos);
    bool deleteSegments(const QList<OVProject::Segment *> &segments);

Q_SIGNALS:
    void labelDoubleClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void labelRightClicked(OVProject::Id label, OVProject::Segment *segment, QPoint pos);
    void labelNameRightClicked(OVProject::Id label, QPoint pos);
    void labelNameDoubleClicked(OVProject::Id label, QPoint pos, int area);
    void ppsChanged(double pps);
    void offsetChanged(double offset);
    void emptyTimelineClicked();
    void labelingEnabledChanged(bool on);
    void codingBlockedReasonChanged(const QString &reason);
    void seekRequested(double time);
    // A mouse gesture or drop that may have changed the model has ended.
    void editFinished();
    // The user dragged the edge between the rows and the waveform strip.
    void waveformsHeightChanged(int height);

public Q_SLOTS:
    void onLabelsChanged();
    void onStateChanged();
    void updateScrollbars();
    void onScrollbarValueChanged(int value);
    void onVerticalScrollberValueChanged(int value);
    void refreshLabels();
    void onSegmentSelectionToggled(OVProject::Id segmentId);
    void onLabelSortOrderDragStarted();
    void onLabelSortOrderDragMoved();
    void onRefreshTimer();
    void onDragFinished();
    void onWaveformsLoaded();
    void onWaveformsCleared();
    void updateWaveformsGeometry();
    void onSplitterMoved(int pos, int index);
    void refreshLabelPainters();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void leaveEvent(QEvent *event) override;
    bool event(QEvent *event) override;

private:
    friend class OVTimelineGestures;
    void relayout();
    void layoutChildren();
    void applyWaveformsHeight();
    void scheduleRelayout();
    void updateWaveformArea();
    void setCurrentPos(double pos);
    void onProjectChanged();
    int totalRowsHeight() const;
    int cursorX() const;
    void paintOverlay(QPainter &p);
    void paintInfoBox(QPainter &p);
    int painterIndexAt(int y) const;

    QPointer<OVProject::Project> m_project;
    OVTimelineHistory *m_history;
    OVTimelineGestures *m_gestures;

    double m_pps = 1.0;
    double m_offset = 0.0;
    int m_nameWidth = DefaultNameWidth;
    double m_currentPos = 0.0;
    double m_videoLength = 0.0;
    int m_verticalScroll = 0;
    QRect m_rubberBand;

    bool m_labelingEnabled = false;
    QString m_codingBlockedReason;
    bool m_requireModifier = false;

    // Started by a position change, so that playback repaints ten times a second and a paused
    // player repaints nothing.
    QTimer *m_refreshTimer;
    QTimer *m_relayoutTimer;
    QTimer *m_flashTimer;
    QList<OVTimelineLabelPainter *> m_painters;
    QSet<OVProject::Id> m_selection;
    OVProject::Id m_highlighted;
    OVProject::Id m_flashLabel;
    QPointer<OVProject::Segment> m_hovered;
    QPoint m_hoverPos;
    // The label whose name is being dragged to a new place.
    QPointer<OVProject::Label> m_sortLabel;

    QScrollBar *m_horizontalScroll;
    QScrollBar *m_verticalScrollBar;
    QSplitter *m_splitter;
    QWidget *m_rowsArea;
    OVWaveformArea *m_waveforms;
    // -1 until the user (or saved settings) chose the strip's height.
    int m_waveformsHeight = -1;
};
