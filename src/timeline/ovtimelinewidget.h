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
#include "settings/ovlabelingsettings.h"

class OVLabelingSettings;
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
// Rows of the active timeline are editable; every edit goes through the history().
class OVTimelineWidget : public QWidget
{
    Q_OBJECT
public:
    static constexpr int RowHeight = 24;
    static constexpr int DefaultNameWidth = 150;
    static constexpr double WheelScrollPixels = 150.0;

    explicit OVTimelineWidget(QWidget *parent = nullptr);
    ~OVTimelineWidget() override;

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    // Not owned; without settings the defaults of the labeling settings apply.
    void setLabelingSettings(OVLabelingSettings *settings);
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
    QString codingBlockedReason() const { return m_codingBlockedReason; }
    void setCodingBlockedReason(const QString &reason);
    int nameWidth() const { return m_nameWidth; }
    void setNameWidth(int width);

    // The current time <-> pixel mapping in this widget's coordinates.
    OVTimeMapping mapping() const;
    double currentPos() const { return m_currentPos; }
    // The rows area (label rows only, without the waveform strip) in widget coordinates.
    QRect rowsRect() const;
    // Width of the time part of the rows, in pixels.
    int timeAreaWidth() const;

    // The timeline that coding and editing act on, or null.
    OVProject::Timeline *activeTimeline() const;
    QList<OVProject::Timeline *> displayedTimelines() const;
    const QList<OVTimelineLabelPainter *> &labelPainters() const { return m_painters; }
    OVTimelineLabelPainter *painterAt(const QPoint &pos) const;
    OVTimelineLabelPainter *painterForLabel(const OVProject::Label *label) const;
    OVProject::Segment *segmentAt(const QPoint &pos) const;

    // Selection (segments of any displayed timeline; edits apply to those of the active one).
    QList<OVProject::Segment *> selectedSegments() const;
    bool isSelected(const OVProject::Segment *segment) const;
    void selectSegments(const QList<OVProject::Segment *> &segments, bool add = false);
    void clearSelection();
    void setHighlightedSegment(const OVProject::Id &segmentId);

    // The coding handler: `key` is the upper-cased character of a key press. True when the
    // model changed.
    bool codeKey(QChar key);
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
    void seekRequested(double time);
    // A mouse gesture or drop that may have changed the model has ended.
    void editFinished();

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

private Q_SLOTS:
    void onSelectedSegmentDestroyed(QObject *segment);

private:
    void relayout();
    void layoutChildren();
    void scheduleRelayout();
    void setCurrentPos(double pos);
    void endGesture();
    int totalRowsHeight() const;
    int cursorX() const;
    void paintOverlay(QPainter &p);
    void paintInfoBox(QPainter &p);
    void addToSelection(OVProject::Segment *segment);
    int painterIndexAt(int y) const;

    QPointer<OVProject::Project> m_project;
    QPointer<OVLabelingSettings> m_settings;
    OVLabelingSettings *m_defaultSettings;
    OVTimelineHistory *m_history;

    double m_pps = 1.0;
    double m_offset = 0.0;
    int m_nameWidth = DefaultNameWidth;
    double m_currentPos = 0.0;
    double m_videoLength = 0.0;
    int m_verticalScroll = 0;

    // Current mouse gesture.
    int m_pressX = 0;
    int m_pressY = 0;
    double m_pressOffset = 0.0;
    double m_pressVerticalScroll = 0.0;
    bool m_panning = false;
    QRect m_rubberBand;
    QPointer<OVProject::Segment> m_grabbed;
    int m_resizeEdge = 0;
    bool m_gestureOpen = false;
    QPointer<OVProject::Label> m_sortLabel;
    bool m_resizingNames = false;

    bool m_labelingEnabled = false;
    QString m_codingBlockedReason;
    bool m_cursorDragging = false;
    bool m_requireModifier = false;
    bool m_repaintPending = false;

    QTimer *m_refreshTimer;
    QTimer *m_relayoutTimer;
    QList<OVTimelineLabelPainter *> m_painters;
    QSet<const QObject *> m_selection;
    QPointer<OVProject::Segment> m_highlighted;
    QPointer<OVProject::Segment> m_hovered;
    QPoint m_hoverPos;

    QScrollBar *m_horizontalScroll;
    QScrollBar *m_verticalScrollBar;
    QSplitter *m_splitter;
    QWidget *m_rowsArea;
    OVWaveformArea *m_waveforms;
};
