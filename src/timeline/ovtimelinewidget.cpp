#include "timeline/ovtimelinewidget.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovtimelinegestures.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinelabelpainter.h"
#include "timeline/ovtimelinelogging.h"
#include "timeline/ovwaveformarea.h"

#include <QApplication>
#include <QDebug>
#include <QDrag>
#include <QHelpEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QSplitter>
#include <QStyle>
#include <QTimer>
#include <QToolTip>

#include <algorithm>
#include <cmath>

using namespace OVProject;

namespace {
const QString SegPtrFormat = QStringLiteral("segptr");
const QString SegPtrListFormat = QStringLiteral("segptrlist");
// Horizontal scroll bar units per second (the bar works in integers).
constexpr double ScrollUnitsPerSecond = 1000.0;
constexpr int MinNameWidth = 60;
constexpr int FlashMs = 700;
} // namespace

OVTimelineWidget::OVTimelineWidget(QWidget *parent)
    : QWidget(parent)
    , m_history(new OVTimelineHistory(this))
    , m_gestures(new OVTimelineGestures(this))
    , m_refreshTimer(new QTimer(this))
    , m_relayoutTimer(new QTimer(this))
    , m_flashTimer(new QTimer(this))
    , m_horizontalScroll(new QScrollBar(Qt::Horizontal, this))
    , m_verticalScrollBar(new QScrollBar(Qt::Vertical, this))
    , m_splitter(new QSplitter(Qt::Vertical, this))
    , m_rowsArea(new QWidget)
    , m_waveforms(new OVWaveformArea)
{
    setObjectName(QStringLiteral("Form"));
    setMouseTracking(true);
    setAcceptDrops(true);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumHeight(120);

    // The rows are painted by this widget; the empty area above the splitter handle only
    // reserves their space and lets the mouse through.
    m_rowsArea->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_rowsArea->setMouseTracking(true);
    m_splitter->setMouseTracking(true);
    m_splitter->setOpaqueResize(true);
    m_splitter->addWidget(m_rowsArea);
    m_splitter->addWidget(m_waveforms);
    m_splitter->setStretchFactor(0, 1);
    m_splitter->setStretchFactor(1, 0);
    m_splitter->setSizes({ 300, 40 });

    m_refreshTimer->setSingleShot(true);
    m_refreshTimer->setInterval(100);
    m_relayoutTimer->setSingleShot(true);
    m_relayoutTimer->setInterval(10);
    m_flashTimer->setSingleShot(true);
    m_flashTimer->setInterval(FlashMs);

    connect(m_horizontalScroll, &QScrollBar::valueChanged, this, &OVTimelineWidget::onScrollbarValueChanged);
    connect(m_verticalScrollBar, &QScrollBar::valueChanged, this, &OVTimelineWidget::onVerticalScrollberValueChanged);
    connect(m_refreshTimer, &QTimer::timeout, this, &OVTimelineWidget::onRefreshTimer);
    connect(m_relayoutTimer, &QTimer::timeout, this, &OVTimelineWidget::updateWaveformsGeometry);
    connect(m_splitter, &QSplitter::splitterMoved, this, &OVTimelineWidget::onSplitterMoved);
    connect(m_flashTimer, &QTimer::timeout, this, [this] {
        m_flashLabel.clear();
        update();
    });
}

OVTimelineWidget::~OVTimelineWidget() = default;

void OVTimelineWidget::setProject(Project *project)
{
    if (project == m_project)
        return;
    if (m_project) {
        disconnect(m_project, nullptr, this, nullptr);
        disconnect(m_project->timelineGroup(), nullptr, this, nullptr);
        disconnect(m_project->state(), nullptr, this, nullptr);
    }
    m_gestures->reset();
    m_project = project;
    m_history->setProject(project);
    m_selection.clear();
    m_hovered = nullptr;
    m_highlighted.clear();
    m_flashLabel.clear();
    setLabelingEnabled(false);
    if (project) {
        TimelineGroup *group = project->timelineGroup();
        State *state = project->state();
        connect(group, &TimelineGroup::labelsChanged, this, &OVTimelineWidget::refreshLabels);
        connect(group, &TimelineGroup::timelinesChanged, this, &OVTimelineWidget::refreshLabels);
        connect(group, &TimelineGroup::labelDetailsChanged, this, &OVTimelineWidget::onLabelsChanged);
        connect(group, &TimelineGroup::segmentsChanged, this, qOverload<>(&QWidget::update));
        connect(state, &State::currentPosChanged, this, &OVTimelineWidget::onStateChanged);
        connect(state, &State::activeUserChanged, this, &OVTimelineWidget::refreshLabels);
        connect(state, &State::displayedTimelineUsersChanged, this, &OVTimelineWidget::refreshLabels);
        connect(state, &State::playRangeChanged, this, qOverload<>(&QWidget::update));
        // The video length lives in the header; its arrival enables coding.
        connect(project, &Project::changed, this, &OVTimelineWidget::onProjectChanged);
        m_currentPos = state->currentPos();
    }
    m_videoLength = project ? project->videoLength() : 0.0;
    refreshLabelPainters();
    updateScrollbars();
    update();
}

void OVTimelineWidget::setPps(double pps)
{
    if (pps == m_pps)
        return;
    qCDebug(lcTimeline) << "TimelineWidget::pps set to:" << pps;
    m_pps = pps;
    // Apply the offset again so the scroll bars are recomputed for the new scale.
    const double old = m_offset;
    m_offset -= 1.0;
    setOffset(old, false);
    m_offset = old; // setOffset does nothing without a project
    relayout();
    updateScrollbars();
    Q_EMIT ppsChanged(pps);
}

void OVTimelineWidget::setOffset(double offset, bool relayoutRows)
{
    if (!m_project || offset == m_offset)
        return;
    qCDebug(lcTimeline) << "TimelineWidget::offset set to:" << offset;
    m_offset = offset;
    updateScrollbars();
    if (relayoutRows)
        relayout();
    else
        updateWaveformArea();
    Q_EMIT offsetChanged(offset);
    update();
}

void OVTimelineWidget::setRequireModifier(bool on)
{
    qCDebug(lcTimeline) << "TimelineWidget::requireModifier set to:" << on;
    m_requireModifier = on;
    relayout();
}

void OVTimelineWidget::setLabelingEnabled(bool on)
{
    if (on == m_labelingEnabled)
        return;
    m_labelingEnabled = on;
    update();
    Q_EMIT labelingEnabledChanged(on);
}

void OVTimelineWidget::setNameWidth(int width)
{
    width = std::clamp(width, MinNameWidth, std::max(MinNameWidth, rowsRect().width() - 50));
    if (width == m_nameWidth)
        return;
    m_nameWidth = width;
    layoutChildren();
    relayout();
    updateScrollbars();
    Q_EMIT offsetChanged(m_offset);
}

OVTimeMapping OVTimelineWidget::mapping() const
{
    OVTimeMapping m;
    m.left = rowsRect().left() + m_nameWidth;
    m.offset = m_offset;
    m.pps = m_pps;
    return m;
}

QRect OVTimelineWidget::rowsRect() const
{
    const QRect area = m_rowsArea->geometry();
    if (area.isEmpty()) // not laid out yet: everything but the scroll bars
        return QRect(0, 0, std::max(0, width() - m_verticalScrollBar->sizeHint().width()), std::max(0, height() - m_horizontalScroll->sizeHint().height()));
    return area.translated(m_splitter->pos());
}

int OVTimelineWidget::timeAreaWidth() const { return std::max(0, rowsRect().width() - m_nameWidth); }

Timeline *OVTimelineWidget::activeTimeline() const { return OVKeyboardCoder::activeTimeline(m_project); }

QList<Timeline *> OVTimelineWidget::displayedTimelines() const { return OVKeyboardCoder::displayedTimelines(m_project); }

void OVTimelineWidget::refreshLabels() { refreshLabelPainters(); }

void OVTimelineWidget::onLabelsChanged() { update(); }

void OVTimelineWidget::refreshLabelPainters()
{
    // Painters may be the sender of the signal that led here (a label drag): let them finish.
    for (OVTimelineLabelPainter *p : std::as_const(m_painters)) {
        disconnect(p, nullptr, this, nullptr);
        p->deleteLater();
    }
    m_painters.clear();
    const Timeline *active = activeTimeline();
    for (Timeline *t : displayedTimelines()) {
        for (Label *l : t->labels()) {
            if (t->isLabelHidden(l->id()))
                continue;
            auto *p = new OVTimelineLabelPainter(l, t == active, this);
            connect(p, &OVTimelineLabelPainter::labelDoubleClicked, this, &OVTimelineWidget::labelDoubleClicked);
            connect(p, &OVTimelineLabelPainter::labelRightClicked, this, &OVTimelineWidget::labelRightClicked);
            connect(p, &OVTimelineLabelPainter::labelNameRightClicked, this, &OVTimelineWidget::labelNameRightClicked);
            connect(p, &OVTimelineLabelPainter::labelNameDoubleClicked, this, &OVTimelineWidget::labelNameDoubleClicked);
            connect(p, &OVTimelineLabelPainter::seekRequested, this, &OVTimelineWidget::seekRequested);
            connect(p, &OVTimelineLabelPainter::selectionToggled, this, &OVTimelineWidget::onSegmentSelectionToggled);
            connect(p, &OVTimelineLabelPainter::dragSortStarted, this, &OVTimelineWidget::onLabelSortOrderDragStarted);
            connect(p, &OVTimelineLabelPainter::dragSortMoved, this, &OVTimelineWidget::onLabelSortOrderDragMoved);
            m_painters.append(p);
        }
    }
    relayout();
    updateScrollbars();
}

int OVTimelineWidget::totalRowsHeight() const { return int(m_painters.size()) * RowHeight; }

void OVTimelineWidget::relayout()
{
    const QRect rows = rowsRect();
    const int maxScroll = std::max(0, totalRowsHeight() - rows.height());
    m_verticalScroll = std::clamp(m_verticalScroll, 0, maxScroll);
    int y = rows.top() - m_verticalScroll;
    for (OVTimelineLabelPainter *p : std::as_const(m_painters)) {
        p->setGeometry(QRect(rows.left(), y, rows.width(), RowHeight), m_nameWidth);
        y += RowHeight;
    }
    updateWaveformArea();
    update();
}

void OVTimelineWidget::scheduleRelayout() { m_relayoutTimer->start(); }

void OVTimelineWidget::updateWaveformArea()
{
    // The strip draws in its own coordinates; it is moved by the splitter, never scaled.
    const int dx = m_waveforms->mapTo(this, QPoint(0, 0)).x();
    OVTimeMapping m = mapping();
    m.left -= dx;
    m_waveforms->setMapping(m);
    const int x = cursorX();
    m_waveforms->setCursorX(x >= 0 ? x - dx : -1);
}

void OVTimelineWidget::applyWaveformsHeight()
{
    if (m_waveformsHeight < 0 || m_waveforms->isHidden())
        return;
    // The splitter shares out its height afresh on every resize (before the window is shown, only
    // once it is): the chosen strip keeps its own.
    const QList<int> sizes = m_splitter->sizes();
    const int total = sizes.size() == 2 ? sizes[0] + sizes[1] : 0;
    const int wanted = std::min(m_waveformsHeight, total);
    if (total > 0 && sizes[1] != wanted)
        m_splitter->setSizes({ total - wanted, wanted });
}

void OVTimelineWidget::updateWaveformsGeometry()
{
    applyWaveformsHeight();
    relayout();
    updateScrollbars();
}

void OVTimelineWidget::onSplitterMoved(int, int)
{
    const QList<int> sizes = m_splitter->sizes();
    if (sizes.size() == 2 && !m_waveforms->isHidden()) {
        m_waveformsHeight = sizes[1];
        Q_EMIT waveformsHeightChanged(m_waveformsHeight);
    }
    scheduleRelayout();
}

int OVTimelineWidget::waveformsHeight() const
{
    const QList<int> sizes = m_splitter->sizes();
    return m_waveformsHeight >= 0 || sizes.size() != 2 ? m_waveformsHeight : sizes[1];
}

void OVTimelineWidget::setWaveformsHeight(int height)
{
    m_waveformsHeight = std::max(0, height);
    layoutChildren();
    scheduleRelayout();
}

void OVTimelineWidget::onWaveformsLoaded()
{
    m_waveforms->setLoading(false);
    // A strip squeezed to its minimum shows no wave: give each track a readable band, but never
    // more than a third of the panel, which belongs to the rows.
    const QList<int> sizes = m_splitter->sizes();
    if (m_waveformsHeight < 0 && sizes.size() == 2 && !m_waveforms->isHidden()) {
        const int total = sizes[0] + sizes[1];
        const int wanted = std::min(total / 3, m_waveforms->trackCount() * WaveformTrackHeight);
        if (sizes[1] < wanted)
            m_splitter->setSizes({ total - wanted, wanted });
    }
    updateWaveformsGeometry();
}

void OVTimelineWidget::onWaveformsCleared()
{
    m_waveforms->setLoading(false);
    updateWaveformsGeometry();
}

void OVTimelineWidget::updateScrollbars()
{
    const double length = m_project ? std::max(0.0, m_project->videoLength()) : 0.0;
    const double visible = m_pps > 0.0 ? timeAreaWidth() / m_pps : 0.0;
    const auto units = [](double seconds) { return int(std::clamp(seconds * ScrollUnitsPerSecond, 0.0, 2.0e9)); };
    {
        const QSignalBlocker block(m_horizontalScroll);
        m_horizontalScroll->setRange(0, units(length));
        m_horizontalScroll->setPageStep(std::max(1, units(visible)));
        m_horizontalScroll->setSingleStep(std::max(1, units(m_pps > 0.0 ? WheelScrollPixels / m_pps : 1.0)));
        m_horizontalScroll->setValue(units(m_offset));
        m_horizontalScroll->setEnabled(length > 0.0);
    }
    {
        const QSignalBlocker block(m_verticalScrollBar);
        const int rowsHeight = rowsRect().height();
        m_verticalScrollBar->setRange(0, std::max(0, totalRowsHeight() - rowsHeight));
        m_verticalScrollBar->setPageStep(std::max(1, rowsHeight));
        m_verticalScrollBar->setSingleStep(RowHeight);
        m_verticalScrollBar->setValue(m_verticalScroll);
    }
}

void OVTimelineWidget::onScrollbarValueChanged(int value) { setOffset(value / ScrollUnitsPerSecond, true); }

void OVTimelineWidget::onVerticalScrollberValueChanged(int value)
{
    if (value == m_verticalScroll)
        return;
    m_verticalScroll = value;
    relayout();
}

void OVTimelineWidget::setCurrentPos(double pos)
{
    if (pos == m_currentPos)
        return;
    m_currentPos = pos;
    updateWaveformArea();
    // Playback publishes many positions a second; a repaint at most every refresh interval is
    // enough for the eye, and without positions the timer stays idle.
    if (!m_refreshTimer->isActive())
        m_refreshTimer->start();
}

void OVTimelineWidget::onStateChanged()
{
    if (m_project)
        setCurrentPos(m_project->state()->currentPos());
}

void OVTimelineWidget::onProjectChanged()
{
    if (!m_project || m_project->videoLength() == m_videoLength)
        return;
    m_videoLength = m_project->videoLength();
    updateScrollbars();
    update();
}

void OVTimelineWidget::onRefreshTimer() { update(); }

int OVTimelineWidget::cursorX() const
{
    if (!m_project)
        return -1;
    const OVTimeMapping m = mapping();
    const int x = m.xAt(m_currentPos);
    if (x < m.left || x > rowsRect().right())
        return -1;
    return x;
}

OVTimelineLabelPainter *OVTimelineWidget::painterAt(const QPoint &pos) const
{
    if (!rowsRect().contains(pos))
        return nullptr;
    for (OVTimelineLabelPainter *p : m_painters) {
        if (p->rowRect().contains(pos))
            return p;
    }
    return nullptr;
}

int OVTimelineWidget::painterIndexAt(int y) const
{
    for (int i = 0; i < m_painters.size(); ++i) {
        const QRect r = m_painters.at(i)->rowRect();
        if (y >= r.top() && y <= r.bottom())
            return i;
    }
    return -1;
}

OVTimelineLabelPainter *OVTimelineWidget::painterForLabel(const Label *label) const
{
    for (OVTimelineLabelPainter *p : m_painters) {
        if (p->label() == label)
            return p;
    }
    return nullptr;
}

Segment *OVTimelineWidget::segmentAt(const QPoint &pos) const
{
    OVTimelineLabelPainter *p = painterAt(pos);
    if (!p || p->nameRect().contains(pos))
        return nullptr;
    return p->segmentAt(pos.x(), mapping(), m_currentPos);
}

QList<Segment *> OVTimelineWidget::selectedSegments() const
{
    // Walk the model, not the set: the set only holds addresses.
    QList<Segment *> result;
    if (m_selection.isEmpty())
        return result;
    for (Timeline *t : displayedTimelines()) {
        for (Label *l : t->labels()) {
            for (Segment *s : l->segments()) {
                if (m_selection.contains(s->id()))
                    result.append(s);
            }
        }
    }
    return result;
}

bool OVTimelineWidget::isSelected(const Segment *segment) const { return segment && m_selection.contains(segment->id()); }

void OVTimelineWidget::addToSelection(Segment *segment)
{
    if (!segment || m_selection.contains(segment->id()))
        return;
    m_selection.insert(segment->id());
    update();
}

void OVTimelineWidget::selectSegments(const QList<Segment *> &segments, bool add)
{
    if (!add)
        m_selection.clear();
    for (Segment *s : segments) {
        if (s)
            m_selection.insert(s->id());
    }
    update();
}

void OVTimelineWidget::selectSegmentIds(const QList<Id> &ids)
{
    m_selection = QSet<Id>(ids.cbegin(), ids.cend());
    m_selection.remove(Id());
    update();
}

void OVTimelineWidget::clearSelection()
{
    if (m_selection.isEmpty())
        return;
    m_selection.clear();
    update();
}

void OVTimelineWidget::onSegmentSelectionToggled(Id segmentId)
{
    if (segmentId.isEmpty())
        return;
    if (!m_selection.remove(segmentId))
        m_selection.insert(segmentId);
    update();
}

void OVTimelineWidget::setHighlightedSegment(const Id &segmentId)
{
    m_highlighted = segmentId;
    update();
}

void OVTimelineWidget::setCodingBlockedReason(const QString &reason)
{
    if (reason == m_codingBlockedReason)
        return;
    m_codingBlockedReason = reason;
    Q_EMIT codingBlockedReasonChanged(reason);
    update();
}

void OVTimelineWidget::flashLabel(const Id &labelId)
{
    m_flashLabel = labelId;
    m_flashTimer->start();
    update();
}

void OVTimelineWidget::setVerticalScroll(int value)
{
    value = std::clamp(value, 0, std::max(0, totalRowsHeight() - rowsRect().height()));
    if (value != m_verticalScroll)
        m_verticalScrollBar->setValue(value);
}

void OVTimelineWidget::setRubberBand(const QRect &band)
{
    if (band == m_rubberBand)
        return;
    m_rubberBand = band;
    update();
}

void OVTimelineWidget::setHovered(Segment *segment, const QPoint &pos)
{
    m_hoverPos = pos;
    // The info box follows the pointer over a segment, so even the same segment repaints.
    if (segment != m_hovered || segment) {
        m_hovered = segment;
        update();
    }
}

void OVTimelineWidget::applyWheel(int delta, Qt::KeyboardModifiers modifiers)
{
    if (!m_project)
        return;
    const double d = delta >= 0 ? 1.0 : -1.0;
    modifiers &= ~Qt::KeypadModifier;
    if (modifiers == Qt::ControlModifier) {
        setPps((d * 0.1 + 1.0) * m_pps);
    } else if (modifiers == Qt::NoModifier) {
        double offset = m_offset + d * WheelScrollPixels / m_pps;
        offset = std::min(offset, m_project->videoLength());
        offset = std::max(offset, 0.0);
        setOffset(offset, true);
    }
}

QString OVTimelineWidget::labelingMessage() const
{
    if (!m_project)
        return QString();
    if (!(m_project->videoLength() > 0.0))
        return tr("Labeling is disabled. Add video to the project first.");
    if (!m_codingBlockedReason.isEmpty())
        return m_codingBlockedReason;
    if (!m_labelingEnabled)
        return tr("Labeling is disabled. Click anywhere on timelines to enable.");
    return QString();
}

QMimeData *OVTimelineWidget::createDragData(Segment *grabbed) const
{
    // Ids, not addresses: a drop that arrives after the segment was deleted (and perhaps another
    // allocated in its place) then finds nothing instead of the wrong segment.
    auto *data = new QMimeData;
    if (!grabbed)
        return data;
    data->setData(SegPtrFormat, grabbed->id().toUtf8());
    if (isSelected(grabbed) && m_selection.size() > 1) {
        QStringList ids;
        for (const Segment *s : selectedSegments())
            ids.append(s->id());
        data->setData(SegPtrListFormat, ids.join(QLatin1Char(',')).toUtf8());
    }
    return data;
}

QList<Segment *> OVTimelineWidget::segmentsFromDragData(const QMimeData *data) const
{
    QList<Segment *> result;
    if (!data)
        return result;
    const QByteArray raw = data->hasFormat(SegPtrListFormat) ? data->data(SegPtrListFormat) : data->data(SegPtrFormat);
    QSet<Id> wanted;
    for (const QByteArray &part : raw.split(',')) {
        const Id id = QString::fromUtf8(part.trimmed());
        if (!id.isEmpty())
            wanted.insert(id);
    }
    if (wanted.isEmpty())
        return result;
    for (Timeline *t : displayedTimelines()) {
        for (Label *l : t->labels()) {
            for (Segment *s : l->segments()) {
                if (wanted.contains(s->id()))
                    result.append(s);
            }
        }
    }
    return result;
}

bool OVTimelineWidget::dropSegments(const QMimeData *data, const QPoint &pos)
{
    if (!m_project || !data || !data->hasFormat(SegPtrFormat))
        return false;
    OVTimelineLabelPainter *target = painterAt(pos);
    if (!target || !target->isEditable() || !target->label())
        return false;
    QList<Segment *> segments;
    for (Segment *s : segmentsFromDragData(data)) {
        if (s->label() && s->label()->timeline() == target->timeline() && s->label() != target->label())
            segments.append(s);
    }
    if (segments.isEmpty())
        return false;
    return m_history->moveSegments(segments, target->label());
}

bool OVTimelineWidget::deleteSegments(const QList<Segment *> &segments)
{
    const Timeline *active = activeTimeline();
    QList<Segment *> own;
    for (Segment *s : segments) {
        if (s && s->label() && s->label()->timeline() == active)
            own.append(s);
    }
    if (own.isEmpty())
        return false;
    return m_history->removeSegments(own);
}

// --- painting ---------------------------------------------------------------------------------

void OVTimelineWidget::paintEvent(QPaintEvent *event)
{
    QPainter p(this);
    const QRect rows = rowsRect();
    p.fillRect(rows & event->rect(), Qt::white);
    if (!m_project)
        return;
    p.setClipRect(rows & event->rect());

    OVTimelineLabelPainter::PaintContext c;
    c.mapping = mapping();
    c.currentPos = m_currentPos;
    c.clip = rows & event->rect();
    c.selection = &m_selection;
    c.highlighted = m_highlighted;
    c.flashed = m_flashLabel;
    for (int i = 0; i < m_painters.size(); ++i) {
        const OVTimelineLabelPainter *painter = m_painters.at(i);
        if (painter->rowRect().top() > c.clip.bottom())
            break;
        if (painter->rowRect().bottom() < c.clip.top())
            continue;
        c.rowIndex = i;
        painter->paint(p, c);
    }
    if (m_painters.isEmpty()) {
        p.setPen(Qt::darkGray);
        p.drawText(rows, Qt::AlignCenter, tr("No labels"));
    }

    const int left = int(c.mapping.left);
    const State *state = m_project->state();
    if (state->hasPlayRange()) {
        int x1 = c.mapping.xAt(state->playRangeStart());
        int x2 = c.mapping.xAt(state->playRangeEnd());
        if (x1 > x2)
            std::swap(x1, x2);
        x1 = std::max(x1, left);
        if (x2 > x1) {
            QColor band(Qt::yellow);
            band.setAlpha(100);
            p.fillRect(QRect(x1, rows.top(), x2 - x1, rows.height()), band);
        }
    }
    const int x = cursorX();
    if (x >= 0) {
        p.setPen(QPen(Qt::yellow, 3));
        p.drawLine(x, rows.top(), x, rows.bottom());
        p.setPen(QPen(Qt::red, 1));
        p.drawLine(x, rows.top(), x, rows.bottom());
    }

    if (!m_rubberBand.isNull()) {
        p.save();
        p.setOpacity(0.2);
        p.fillRect(m_rubberBand, Qt::darkGreen);
        p.setOpacity(0.7);
        p.setPen(Qt::darkGreen);
        p.drawRect(m_rubberBand);
        p.restore();
    }
    paintInfoBox(p);
    paintOverlay(p);
}

void OVTimelineWidget::paintInfoBox(QPainter &p)
{
    if (!m_hovered || !m_rubberBand.isNull() || m_gestures->isHoldingSegment())
        return;
    const QString text = OVTimelineLabelPainter::segmentInfo(m_hovered, m_currentPos);
    const QFontMetrics fm(font());
    QRect box = fm.boundingRect(QRect(0, 0, 400, 400), Qt::AlignLeft | Qt::TextWordWrap, text).adjusted(-4, -3, 4, 3);
    const QRect rows = rowsRect();
    box.moveTopLeft(m_hoverPos + QPoint(14, 14));
    if (box.right() > rows.right())
        box.moveRight(m_hoverPos.x() - 6);
    if (box.bottom() > rows.bottom())
        box.moveBottom(m_hoverPos.y() - 6);
    p.save();
    p.fillRect(box, QColor(255, 255, 225, 200));
    p.setPen(QColor(120, 120, 120));
    p.drawRect(box.adjusted(0, 0, -1, -1));
    p.setPen(Qt::black);
    p.drawText(box.adjusted(4, 3, -4, -3), Qt::AlignLeft | Qt::TextWordWrap, text);
    p.restore();
}

void OVTimelineWidget::paintOverlay(QPainter &p)
{
    const QString message = labelingMessage();
    if (message.isEmpty())
        return;
    const QRect rows = rowsRect();
    p.save();
    QColor shade(Qt::black);
    shade.setAlphaF(0.4f);
    p.fillRect(rows, shade);
    QFont f(QStringLiteral("Arial"));
    f.setPointSize(14);
    p.setFont(f);
    p.setPen(Qt::white);
    p.drawText(rows, Qt::AlignCenter | Qt::TextWordWrap, message);
    p.restore();
}

void OVTimelineWidget::resizeEvent(QResizeEvent *)
{
    layoutChildren();
    relayout();
    updateScrollbars();
    scheduleRelayout();
}

void OVTimelineWidget::layoutChildren()
{
    const int sb = m_verticalScrollBar->sizeHint().width();
    const int hb = m_horizontalScroll->sizeHint().height();
    m_splitter->setGeometry(0, 0, std::max(0, width() - sb), std::max(0, height() - hb));
    applyWaveformsHeight();
    m_verticalScrollBar->setGeometry(width() - sb, 0, sb, std::max(0, height() - hb));
    m_horizontalScroll->setGeometry(m_nameWidth, height() - hb, std::max(0, width() - sb - m_nameWidth), hb);
}

// --- mouse ------------------------------------------------------------------------------------

void OVTimelineWidget::mousePressEvent(QMouseEvent *event) { m_gestures->press(event); }

void OVTimelineWidget::mouseMoveEvent(QMouseEvent *event) { m_gestures->move(event); }

void OVTimelineWidget::mouseReleaseEvent(QMouseEvent *event) { m_gestures->release(event); }

void OVTimelineWidget::mouseDoubleClickEvent(QMouseEvent *event) { m_gestures->doubleClick(event); }

void OVTimelineWidget::onLabelSortOrderDragStarted()
{
    if (auto *p = qobject_cast<OVTimelineLabelPainter *>(sender()))
        m_sortLabel = p->label();
}

void OVTimelineWidget::onLabelSortOrderDragMoved()
{
    Label *label = m_sortLabel;
    Timeline *t = label ? label->timeline() : nullptr;
    if (!t)
        return;
    const int row = painterIndexAt(m_hoverPos.y());
    if (row < 0)
        return;
    const Label *over = m_painters.at(row)->label();
    if (!over || over == label || over->timeline() != t)
        return;
    m_history->moveLabel(t, int(t->labels().indexOf(label)), int(t->labels().indexOf(over)));
}

void OVTimelineWidget::onDragFinished() { m_gestures->onDragFinished(); }

void OVTimelineWidget::wheelEvent(QWheelEvent *event)
{
    const QPoint d = event->angleDelta();
    applyWheel(d.y() != 0 ? d.y() : d.x(), event->modifiers());
    event->accept();
}

void OVTimelineWidget::keyPressEvent(QKeyEvent *event)
{
    if (event->modifiers() & Qt::ShiftModifier) {
        update();
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

void OVTimelineWidget::dragEnterEvent(QDragEnterEvent *event)
{
    if (m_project && event->mimeData()->hasFormat(SegPtrFormat))
        event->acceptProposedAction();
    else
        event->ignore();
}

void OVTimelineWidget::dragMoveEvent(QDragMoveEvent *event)
{
    OVTimelineLabelPainter *p = painterAt(event->position().toPoint());
    if (p && p->isEditable() && event->mimeData()->hasFormat(SegPtrFormat))
        event->acceptProposedAction();
    else
        event->ignore();
}

void OVTimelineWidget::dropEvent(QDropEvent *event)
{
    if (!m_project || !event->mimeData()->hasFormat(SegPtrFormat)) {
        event->ignore();
        return;
    }
    m_gestures->drop(event);
}

void OVTimelineWidget::leaveEvent(QEvent *)
{
    if (m_hovered) {
        m_hovered = nullptr;
        update();
    }
}

bool OVTimelineWidget::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        auto *help = static_cast<QHelpEvent *>(event);
        if (Segment *s = segmentAt(help->pos()))
            QToolTip::showText(help->globalPos(), OVTimelineLabelPainter::segmentToolTip(s, m_currentPos), this);
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}
