#include "timeline/ovsegmentlistmodel.h"

#include "log/ovtimeformat.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "timeline/ovkeyboardcoder.h"
#include "timeline/ovtimelinehistory.h"

#include <QColor>

#include <cmath>
#include <limits>

using namespace OVProject;

namespace {

// More gone and new rows than this in one turn of the event loop are settled by a reset: a
// sorting proxy pays a pass over all its rows for every removed range, a sort only once.
constexpr int BulkLimit = 200;

QString coderName(const Timeline *t) { return t->owner().isEmpty() ? t->id() : t->owner(); }

bool readSeconds(const QVariant &value, double *seconds)
{
    const int type = value.metaType().id();
    if (type == QMetaType::Double || type == QMetaType::Float || type == QMetaType::Int || type == QMetaType::LongLong) {
        *seconds = value.toDouble();
        return std::isfinite(*seconds);
    }
    return OVTimeFormat::parse(value.toString().trimmed(), seconds);
}

} // namespace

OVSegmentListModel::OVSegmentListModel(QObject *parent)
    : QAbstractTableModel(parent)
    , m_requests(new OVTimelineHistory(this))
{
}

OVSegmentListModel::~OVSegmentListModel() = default;

void OVSegmentListModel::setProject(Project *project)
{
    if (m_project == project)
        return;
    if (m_project) {
        disconnect(m_project, nullptr, this, nullptr);
        disconnect(m_project->timelineGroup(), nullptr, this, nullptr);
        disconnect(m_project->state(), nullptr, this, nullptr);
    }
    m_project = project;
    m_requests->setProject(project);
    if (project) {
        // Which timelines are shown changes rarely and wholesale: rebuilt, not followed.
        connect(project->timelineGroup(), &TimelineGroup::timelinesChanged, this, &OVSegmentListModel::rebuild);
        connect(project->state(), &State::displayedTimelineUsersChanged, this, &OVSegmentListModel::rebuild);
        connect(project->state(), &State::activeUserChanged, this, &OVSegmentListModel::rebuild);
        // A deleted project takes its timelines along without a word: drop every row first.
        connect(project, &QObject::destroyed, this, [this] {
            beginResetModel();
            detachAll();
            endResetModel();
        });
    }
    rebuild();
}

Project *OVSegmentListModel::project() const { return m_project; }

QList<Timeline *> OVSegmentListModel::displayedTimelines() const { return OVKeyboardCoder::displayedTimelines(m_project); }

void OVSegmentListModel::detachAll()
{
    // Connections go with their context; the nodes they came from may already be gone.
    delete m_scope;
    m_scope = nullptr;
    m_timelines.clear();
    m_labels.clear();
    m_rows.clear();
    m_rowOf.clear();
    m_pending.clear();
    m_pendingOf.clear();
    m_byId.clear();
    m_rescan.clear();
    m_groups.clear();
    m_dead = 0;
}

void OVSegmentListModel::rebuild()
{
    beginResetModel();
    detachAll();
    if (m_project) {
        m_scope = new QObject(this);
        for (Timeline *t : displayedTimelines())
            attachTimeline(t);
        for (Timeline *t : std::as_const(m_timelines)) {
            for (Label *l : t->labels()) {
                for (Segment *s : l->segments()) {
                    m_rowOf.insert(s, int(m_rows.size()));
                    m_rows.push_back({ s, l, t, true });
                    if (!s->id().isEmpty())
                        m_byId.insert({ l, s->id() }, s);
                }
            }
        }
    }
    endResetModel();
}

void OVSegmentListModel::attachTimeline(Timeline *t)
{
    m_timelines.append(t);
    connect(t, &Timeline::labelsChanged, m_scope, [this, t] { onLabelsChanged(t); });
    connect(t, &Timeline::changed, m_scope, [this] { columnChanged(CoderColumn, CoderColumn); });
    connect(t, &Timeline::segmentGroupsChanged, m_scope, [this, t] { groupsChanged(t); });
    for (SegmentGroup *g : t->segmentGroups())
        connect(g, &SegmentGroup::changed, m_scope, [this, t] { groupsChanged(t); });
    for (Label *l : t->labels())
        attachLabel(l);
}

void OVSegmentListModel::attachLabel(Label *l)
{
    m_labels.insert(l, { l, l->timeline() });
    connect(l, &Label::segmentAdded, m_scope, [this, l](Segment *s) { onSegmentAdded(l, s); });
    connect(l, &Label::segmentChanged, m_scope, [this](Segment *s) { onSegmentChanged(s); });
    connect(l, &Label::segmentRemoved, m_scope, [this, l](const Id &id) { onSegmentRemoved(l, id); });
    connect(l, &Label::segmentsChanged, m_scope, [this, l] { onLabelSegmentsChanged(l); });
    connect(l, &Label::changed, m_scope, [this] { columnChanged(LabelColumn, KeyColumn); });
}

void OVSegmentListModel::detachLabel(Label *l)
{
    // A label deleted elsewhere is only a QObject by now; its connections have gone with it.
    if (const QPointer<Label> alive = m_labels.take(l).label)
        disconnect(alive, nullptr, m_scope, nullptr);
    m_rescan.remove(l);
}

void OVSegmentListModel::onLabelsChanged(Timeline *t)
{
    const QList<Label *> &now = t->labels();
    QList<Label *> gone;
    for (auto it = m_labels.cbegin(); it != m_labels.cend(); ++it) {
        // Compared by address only: the label may be half destroyed.
        if (it.value().timeline == t && !now.contains(it.key()))
            gone.append(it.key());
    }
    for (Label *l : std::as_const(gone)) {
        markLabelGone(l);
        detachLabel(l);
    }
    for (Label *l : now) {
        if (m_labels.contains(l))
            continue;
        attachLabel(l);
        // A label that comes back by undo brings its segments with it, added before it was ours.
        for (Segment *s : l->segments())
            onSegmentAdded(l, s);
    }
}

void OVSegmentListModel::onSegmentAdded(Label *label, Segment *segment)
{
    if (!segment->id().isEmpty())
        m_byId.insert({ label, segment->id() }, segment);
    const int r = rowOf(segment);
    if (r >= 0) {
        // Moved to another label, or a row whose segment went and came back in the same turn.
        Row &row = m_rows[std::size_t(r)];
        if (!row.alive)
            --m_dead;
        row = { segment, label, label->timeline(), true };
        rowChanged(segment);
        return;
    }
    const int p = m_pendingOf.value(segment, -1);
    if (p >= 0) {
        m_pending[std::size_t(p)] = { segment, label, true };
        return;
    }
    m_pendingOf.insert(segment, int(m_pending.size()));
    m_pending.push_back({ segment, label, true });
    scheduleFlush();
}

void OVSegmentListModel::onSegmentChanged(Segment *segment)
{
    const int r = rowOf(segment);
    if (r >= 0 && m_rows[std::size_t(r)].alive)
        rowChanged(segment);
}

void OVSegmentListModel::settle()
{
    // A sorting proxy places a changed row by comparing it with the others; a gone row has
    // nothing to compare, and a row placed against it would stay out of order.
    if (m_dead > 0)
        flush();
}

void OVSegmentListModel::rowChanged(const Segment *segment)
{
    settle();
    const int r = rowOf(segment);
    if (r >= 0)
        Q_EMIT dataChanged(index(r, 0), index(r, ColumnCount - 1));
}

void OVSegmentListModel::onSegmentRemoved(Label *label, const Id &id)
{
    Segment *s = id.isEmpty() ? nullptr : m_byId.take({ label, id });
    const int r = s ? rowOf(s) : -1;
    const int p = s ? m_pendingOf.value(s, -1) : -1;
    if ((r >= 0 && m_rows[std::size_t(r)].label == label) || (p >= 0 && m_pending[std::size_t(p)].label == label))
        markGone(s);
    else
        m_rescan.insert(label);
}

void OVSegmentListModel::onLabelSegmentsChanged(Label *label)
{
    if (m_rescan.remove(label))
        markGoneNotIn(label);
}

void OVSegmentListModel::markGone(Segment *segment)
{
    const int r = rowOf(segment);
    if (r >= 0) {
        Row &row = m_rows[std::size_t(r)];
        if (row.alive) {
            row.alive = false;
            ++m_dead;
            scheduleFlush();
        }
        return;
    }
    const int p = m_pendingOf.value(segment, -1);
    if (p >= 0)
        m_pending[std::size_t(p)].alive = false;
}

void OVSegmentListModel::markGoneNotIn(Label *label)
{
    const QList<Segment *> &held = label->segments();
    const QSet<const Segment *> present(held.cbegin(), held.cend());
    for (Row &row : m_rows) {
        if (row.alive && row.label == label && !present.contains(row.segment)) {
            row.alive = false;
            ++m_dead;
        }
    }
    for (Pending &p : m_pending) {
        if (p.label == label && !present.contains(p.segment))
            p.alive = false;
    }
    scheduleFlush();
}

void OVSegmentListModel::markLabelGone(Label *label)
{
    for (Row &row : m_rows) {
        if (row.alive && row.label == label) {
            row.alive = false;
            ++m_dead;
        }
    }
    for (Pending &p : m_pending) {
        if (p.label == label)
            p.alive = false;
    }
    for (auto it = m_byId.begin(); it != m_byId.end();)
        it = it.key().first == label ? m_byId.erase(it) : std::next(it);
    scheduleFlush();
}

void OVSegmentListModel::scheduleFlush()
{
    if (m_flushQueued)
        return;
    m_flushQueued = true;
    QMetaObject::invokeMethod(this, &OVSegmentListModel::flush, Qt::QueuedConnection);
}

void OVSegmentListModel::flush()
{
    m_flushQueued = false;
    int adds = 0;
    for (const Pending &p : m_pending)
        adds += p.alive ? 1 : 0;
    auto takePending = [this] {
        for (const Pending &p : std::as_const(m_pending)) {
            if (!p.alive)
                continue;
            m_rowOf.insert(p.segment, int(m_rows.size()));
            m_rows.push_back({ p.segment, p.label, p.label->timeline(), true });
        }
        m_pending.clear();
        m_pendingOf.clear();
    };
    auto reindexFrom = [this](std::size_t first) {
        for (std::size_t i = first; i < m_rows.size(); ++i)
            m_rowOf.insert(m_rows[i].segment, int(i));
    };
    if (m_dead + adds > BulkLimit) {
        beginResetModel();
        for (const Row &row : m_rows) {
            if (!row.alive)
                m_rowOf.remove(row.segment);
        }
        std::erase_if(m_rows, [](const Row &row) { return !row.alive; });
        m_dead = 0;
        takePending();
        reindexFrom(0);
        endResetModel();
        return;
    }
    std::size_t lowest = m_rows.size();
    for (std::size_t end = m_rows.size(); m_dead > 0 && end > 0;) {
        if (m_rows[end - 1].alive) {
            --end;
            continue;
        }
        std::size_t first = end - 1;
        while (first > 0 && !m_rows[first - 1].alive)
            --first;
        beginRemoveRows(QModelIndex(), int(first), int(end - 1));
        for (std::size_t i = first; i < end; ++i)
            m_rowOf.remove(m_rows[i].segment);
        m_rows.erase(m_rows.begin() + std::ptrdiff_t(first), m_rows.begin() + std::ptrdiff_t(end));
        m_dead -= int(end - first);
        endRemoveRows();
        lowest = first;
        end = first;
    }
    reindexFrom(lowest);
    if (adds > 0) {
        beginInsertRows(QModelIndex(), int(m_rows.size()), int(m_rows.size()) + adds - 1);
        takePending();
        endInsertRows();
    } else {
        m_pending.clear();
        m_pendingOf.clear();
    }
}

int OVSegmentListModel::rowOf(const Segment *segment) const
{
    // Between the removal of a range and the reindexing after it, indexes past it are stale.
    const int r = m_rowOf.value(segment, -1);
    return r >= 0 && std::size_t(r) < m_rows.size() && m_rows[std::size_t(r)].segment == segment ? r : -1;
}

Segment *OVSegmentListModel::segment(int row) const
{
    if (row < 0 || std::size_t(row) >= m_rows.size() || !m_rows[std::size_t(row)].alive)
        return nullptr;
    return m_rows[std::size_t(row)].segment;
}

int OVSegmentListModel::liveRowCount() const { return int(m_rows.size()) - m_dead; }

void OVSegmentListModel::columnChanged(int first, int last)
{
    settle();
    if (!m_rows.empty())
        Q_EMIT dataChanged(index(0, first), index(int(m_rows.size()) - 1, last));
}

void OVSegmentListModel::groupsChanged(Timeline *t)
{
    m_groups.remove(t);
    // Groups that came since are followed as well.
    for (SegmentGroup *g : t->segmentGroups()) {
        disconnect(g, nullptr, m_scope, nullptr);
        connect(g, &SegmentGroup::changed, m_scope, [this, t] { groupsChanged(t); });
    }
    columnChanged(GroupsColumn, GroupsColumn);
}

QString OVSegmentListModel::groupsOf(Timeline *t, const Id &segmentId) const
{
    auto it = m_groups.find(t);
    if (it == m_groups.end()) {
        QHash<Id, QString> names;
        for (const SegmentGroup *g : t->segmentGroups()) {
            for (const Id &id : g->segmentIds()) {
                QString &n = names[id];
                n = n.isEmpty() ? g->name() : n + QStringLiteral("; ") + g->name();
            }
        }
        it = m_groups.insert(t, names);
    }
    return it->value(segmentId);
}

int OVSegmentListModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_rows.size()); }

int OVSegmentListModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant OVSegmentListModel::data(const QModelIndex &index, int role) const
{
    const Segment *s = index.isValid() ? segment(index.row()) : nullptr;
    if (!s)
        return QVariant();
    const Row &row = m_rows[std::size_t(index.row())];
    const bool open = s->isOpen();
    switch (role) {
    case TimelineIdRole:
        return row.timeline->id();
    case LabelNameRole:
        return row.label->name();
    case SegmentIdRole:
        return s->id();
    case StartRole:
        return s->start();
    case Qt::DecorationRole:
        return index.column() == LabelColumn ? QVariant(row.label->color()) : QVariant();
    case Qt::TextAlignmentRole:
        return index.column() >= StartColumn && index.column() <= DurationColumn ? QVariant(Qt::AlignRight | Qt::AlignVCenter) : QVariant();
    case Qt::DisplayRole:
    case Qt::EditRole:
    case SortRole:
        break;
    default:
        return QVariant();
    }
    const bool sort = role == SortRole;
    const bool edit = role == Qt::EditRole;
    switch (index.column()) {
    case CoderColumn:
        return coderName(row.timeline);
    case LabelColumn:
        return row.label->name();
    case KeyColumn:
        return row.label->key().isNull() ? QString() : QString(row.label->key());
    case StartColumn:
        return sort ? QVariant(s->start()) : QVariant(OVTimeFormat::format(s->start()));
    case EndColumn:
        if (sort)
            return s->end();
        if (open)
            return edit ? QString() : tr("open");
        return OVTimeFormat::format(s->end());
    case DurationColumn:
        if (sort)
            return open ? std::numeric_limits<double>::infinity() : s->end() - s->start();
        return open ? QString() : OVTimeFormat::format(s->end() - s->start());
    case DescriptionColumn:
        return s->description();
    case GroupsColumn:
        return groupsOf(row.timeline, s->id());
    default:
        return QVariant();
    }
}

QVariant OVSegmentListModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case CoderColumn:
        return tr("Coder");
    case LabelColumn:
        return tr("Label");
    case KeyColumn:
        return tr("Key");
    case StartColumn:
        return tr("Start");
    case EndColumn:
        return tr("End");
    case DurationColumn:
        return tr("Duration");
    case DescriptionColumn:
        return tr("Description");
    case GroupsColumn:
        return tr("Groups");
    default:
        return QVariant();
    }
}

bool OVSegmentListModel::isEditable(const Row &row) const
{
    // Only the active coder's timeline is edited, as on the timeline itself.
    return row.alive && m_project && row.timeline == OVKeyboardCoder::activeTimeline(m_project);
}

Qt::ItemFlags OVSegmentListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || !segment(index.row()))
        return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    const int c = index.column();
    if (c != CoderColumn && c != GroupsColumn && isEditable(m_rows[std::size_t(index.row())]))
        f |= Qt::ItemIsEditable;
    return f;
}

QStringList OVSegmentListModel::labelChoices(int row) const
{
    QStringList names;
    if (!segment(row))
        return names;
    for (const Label *l : m_rows[std::size_t(row)].timeline->labels())
        names << l->name();
    return names;
}

bool OVSegmentListModel::removeSegments(const QList<int> &rows)
{
    QList<Segment *> segments;
    QSet<const Segment *> seen;
    for (int row : rows) {
        Segment *s = segment(row);
        if (!s || !isEditable(m_rows[std::size_t(row)]))
            return false;
        if (!seen.contains(s)) {
            seen.insert(s);
            segments << s;
        }
    }
    return !segments.isEmpty() && m_requests->removeSegments(segments);
}

bool OVSegmentListModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    Segment *s = index.isValid() ? segment(index.row()) : nullptr;
    if (!s || role != Qt::EditRole || !isEditable(m_rows[std::size_t(index.row())]))
        return false;
    Timeline *t = m_rows[std::size_t(index.row())].timeline;
    double seconds = 0.0;
    switch (index.column()) {
    case StartColumn:
        return readSeconds(value, &seconds) && m_requests->editSegment(s, seconds, s->end(), s->description());
    case EndColumn:
        return readSeconds(value, &seconds) && m_requests->editSegment(s, s->start(), seconds, s->description());
    case DurationColumn:
        return readSeconds(value, &seconds) && seconds >= 0.0
            && m_requests->editSegment(s, s->start(), s->start() + seconds, s->description());
    case DescriptionColumn:
        return m_requests->editSegment(s, s->start(), s->end(), value.toString());
    case LabelColumn: {
        const QString name = value.toString();
        Label *target = t->label(name);
        for (Qt::CaseSensitivity cs : { Qt::CaseSensitive, Qt::CaseInsensitive }) {
            for (Label *l : t->labels()) {
                if (!target && l->name().compare(name, cs) == 0)
                    target = l;
            }
        }
        return target && m_requests->moveSegments({ s }, target);
    }
    case KeyColumn: {
        const QString key = value.toString().trimmed();
        Label *target = key.size() == 1 ? t->labelForKey(key.at(0)) : nullptr;
        return target && m_requests->moveSegments({ s }, target);
    }
    default:
        return false;
    }
}
