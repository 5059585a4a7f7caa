#include "project/label.h"

#include "project/segment.h"
#include "project/timeline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace OVProject {

namespace {
// Sort key of a time: NaN would break the ordering, so it sorts (and reaches) nowhere.
inline double timeKey(double v) { return std::isnan(v) ? -std::numeric_limits<double>::infinity() : v; }
} // namespace

Label::Label(const Id &id, QObject *parent)
    : BaseNode(id, parent)
{
}

Label::~Label()
{
    if (m_idIndexOwner)
        m_idIndexOwner->unindexSegments(this);
    for (Segment *s : std::as_const(m_segments))
        s->m_label = nullptr;
}

bool Label::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const Label *>(other);
    if (!o)
        return false;
    m_name = o->m_name;
    m_description = o->m_description;
    m_color = o->m_color;
    m_key = o->m_key;
    m_sortOrder = o->m_sortOrder;
    Q_EMIT changed();
    return true;
}

QString Label::contentHash() const
{
    return md5Hex(m_name + m_description + QString::number(m_color.rgba()) + QString::number(m_key.unicode())
        + QString::number(m_sortOrder) + m_id);
}

void Label::setName(const QString &name)
{
    if (name == m_name)
        return;
    m_name = name;
    Q_EMIT changed();
}

void Label::setDescription(const QString &description)
{
    if (description == m_description)
        return;
    m_description = description;
    Q_EMIT changed();
}

void Label::setColor(const QColor &color)
{
    if (color == m_color)
        return;
    m_color = color;
    Q_EMIT changed();
}

void Label::setKey(QChar key)
{
    if (key == m_key)
        return;
    m_key = key;
    Q_EMIT changed();
}

void Label::setSortOrder(int sortOrder)
{
    if (sortOrder == m_sortOrder)
        return;
    m_sortOrder = sortOrder;
    Q_EMIT changed();
}

bool Label::matchesKey(QChar key) const { return !m_key.isNull() && m_key.toUpper() == key.toUpper(); }

Segment *Label::segment(const Id &id) const
{
    if (m_idIndexOwner)
        return m_idIndexOwner->indexedSegment(id, this);
    for (Segment *s : m_segments) {
        if (s->id() == id)
            return s;
    }
    return nullptr;
}

Segment *Label::openSegment() const
{
    if (m_openCount == 0)
        return nullptr;
    for (auto it = m_segments.crbegin(); it != m_segments.crend(); ++it) {
        if ((*it)->isOpen())
            return *it;
    }
    return nullptr;
}

Timeline *Label::timeline() const { return qobject_cast<Timeline *>(parent()); }

void Label::attach(Segment *segment)
{
    if (segment->m_label && segment->m_label != this)
        segment->m_label->takeSegment(segment);
    segment->setParent(this);
    segment->m_label = this;
    m_segments.append(segment);
    if (segment->isOpen())
        ++m_openCount;
    if (m_idIndexOwner)
        m_idIndexOwner->indexSegment(segment);
    connect(segment, &QObject::destroyed, this, &Label::onSegmentDestroyed);
    connect(segment, &Segment::changed, this, &Label::onSegmentChanged);
}

void Label::detach(Segment *segment)
{
    if (segment->isOpen())
        --m_openCount;
    if (m_idIndexOwner)
        m_idIndexOwner->unindexSegment(segment, segment->id());
    disconnect(segment, nullptr, this, nullptr);
    segment->m_label = nullptr;
    segment->setParent(nullptr);
}

void Label::addSegment(Segment *segment)
{
    if (!segment || segment->m_label == this)
        return;
    attach(segment);
    if (m_indexValid)
        indexInsert(segment);
    Q_EMIT segmentAdded(segment);
    Q_EMIT segmentsChanged();
}

void Label::addSegments(const QList<Segment *> &segments)
{
    bool any = false;
    m_segments.reserve(m_segments.size() + segments.size());
    // A load or an undo of many: the timeline rebuilds its id index once, at its next lookup.
    if (m_idIndexOwner && segments.size() > 1)
        m_idIndexOwner->dropSegmentIndex();
    for (Segment *s : segments) {
        if (!s || s->m_label == this)
            continue;
        // One sort at the next query instead of one insertion per segment.
        m_indexValid = false;
        attach(s);
        Q_EMIT segmentAdded(s);
        any = true;
    }
    if (!any)
        return;
    Q_EMIT segmentsChanged();
}

Segment *Label::takeSegment(Segment *segment)
{
    if (!segment || segment->m_label != this)
        return nullptr;
    m_segments.removeOne(segment);
    if (m_indexValid) {
        const std::size_t pos = indexFind(segment, segment->start());
        if (pos < m_index.size())
            indexRemoveAt(pos);
        else
            m_indexValid = false;
    }
    detach(segment);
    Q_EMIT segmentRemoved(segment->id());
    Q_EMIT segmentsChanged();
    return segment;
}

void Label::removeSegment(Segment *segment) { delete takeSegment(segment); }

void Label::onSegmentDestroyed()
{
    // Only the QObject part is left: compare addresses, never cast.
    QObject *gone = sender();
    const auto it = std::find_if(m_segments.begin(), m_segments.end(),
        [gone](Segment *s) { return static_cast<QObject *>(s) == gone; });
    if (it == m_segments.end())
        return;
    const Segment *dead = *it;
    m_segments.erase(it);
    if (m_indexValid) {
        const auto e = std::find_if(
            m_index.begin(), m_index.end(), [dead](const IndexEntry &x) { return x.segment == dead; });
        if (e != m_index.end())
            indexRemoveAt(std::size_t(e - m_index.begin()));
    }
    Q_EMIT segmentsChanged();
}

void Label::onSegmentChanged()
{
    // Only segments' changed() is connected here.
    Q_EMIT segmentChanged(static_cast<Segment *>(sender()));
    Q_EMIT segmentsChanged();
}

void Label::segmentDestroying(Segment *segment)
{
    if (segment->isOpen())
        --m_openCount;
    if (m_idIndexOwner)
        m_idIndexOwner->unindexSegment(segment, segment->id());
    Q_EMIT segmentRemoved(segment->id());
}

void Label::segmentIdChanged(Segment *segment, const Id &oldId)
{
    if (m_idIndexOwner)
        m_idIndexOwner->reindexSegment(segment, oldId);
    // To an observer that keys segments by id (the journal) this is one segment gone and another come.
    Q_EMIT segmentRemoved(oldId);
    Q_EMIT segmentAdded(segment);
    Q_EMIT segmentsChanged();
}

void Label::segmentTimesChanged(Segment *segment, double oldStart, double oldEnd)
{
    m_openCount += int(segment->isOpen()) - int(oldEnd == Segment::OpenEnd);
    if (!m_indexValid)
        return;
    const std::size_t pos = indexFind(segment, oldStart);
    if (pos >= m_index.size()) {
        m_indexValid = false;
        return;
    }
    const double start = timeKey(segment->start());
    const bool fitsHere = (pos == 0 || m_index[pos - 1].start <= start)
        && (pos + 1 >= m_index.size() || start <= m_index[pos + 1].start);
    if (fitsHere) {
        // Same place in the order (the common case of a resize): only this block's maximum moves.
        m_index[pos].start = start;
        m_index[pos].end = timeKey(segment->end());
        refreshBlocks(pos, pos);
        return;
    }
    indexRemoveAt(pos);
    indexInsert(segment);
}

void Label::ensureIndex() const
{
    if (m_indexValid)
        return;
    m_index.clear();
    m_index.reserve(std::size_t(m_segments.size()));
    for (Segment *s : m_segments)
        m_index.push_back({ timeKey(s->start()), timeKey(s->end()), s });
    std::stable_sort(m_index.begin(), m_index.end(),
        [](const IndexEntry &a, const IndexEntry &b) { return a.start < b.start; });
    m_blockMaxEnd.clear();
    m_indexValid = true;
    if (!m_index.empty())
        refreshBlocks(0, m_index.size() - 1);
}

void Label::indexInsert(Segment *segment) const
{
    const IndexEntry entry { timeKey(segment->start()), timeKey(segment->end()), segment };
    const auto at = std::upper_bound(m_index.begin(), m_index.end(), entry.start,
        [](double v, const IndexEntry &e) { return v < e.start; });
    const std::size_t pos = std::size_t(at - m_index.begin());
    m_index.insert(at, entry);
    refreshBlocks(pos, m_index.size() - 1);
}

void Label::indexRemoveAt(std::size_t pos) const
{
    m_index.erase(m_index.begin() + std::ptrdiff_t(pos));
    if (m_index.empty()) {
        m_blockMaxEnd.clear();
        return;
    }
    refreshBlocks(std::min(pos, m_index.size() - 1), m_index.size() - 1);
}

std::size_t Label::indexFind(const Segment *segment, double start) const
{
    const double key = timeKey(start);
    auto it = std::lower_bound(
        m_index.begin(), m_index.end(), key, [](const IndexEntry &e, double v) { return e.start < v; });
    for (; it != m_index.end() && it->start == key; ++it) {
        if (it->segment == segment)
            return std::size_t(it - m_index.begin());
    }
    const auto any = std::find_if(
        m_index.begin(), m_index.end(), [segment](const IndexEntry &e) { return e.segment == segment; });
    return std::size_t(any - m_index.begin());
}

// Recomputes the maxima of the blocks holding entries fromPos..toPos and drops blocks past the end.
void Label::refreshBlocks(std::size_t fromPos, std::size_t toPos) const
{
    const std::size_t blocks = (m_index.size() + BlockSize - 1) / BlockSize;
    m_blockMaxEnd.resize(blocks);
    const std::size_t lastBlock = std::min(toPos / BlockSize, blocks ? blocks - 1 : 0);
    for (std::size_t b = fromPos / BlockSize; b < blocks && b <= lastBlock; ++b) {
        double maxEnd = -std::numeric_limits<double>::infinity();
        const std::size_t end = std::min(m_index.size(), (b + 1) * BlockSize);
        for (std::size_t i = b * BlockSize; i < end; ++i)
            maxEnd = std::max(maxEnd, m_index[i].end);
        m_blockMaxEnd[b] = maxEnd;
    }
}

template <typename Visit> void Label::visitRange(double from, double to, Visit visit) const
{
    if (std::isnan(from) || std::isnan(to) || from > to)
        return;
    ensureIndex();
    const auto hiIt = std::upper_bound(
        m_index.begin(), m_index.end(), to, [](double v, const IndexEntry &e) { return v < e.start; });
    const std::size_t hi = std::size_t(hiIt - m_index.begin());
    for (std::size_t b = 0; b * BlockSize < hi; ++b) {
        if (m_blockMaxEnd[b] < from)
            continue;
        const std::size_t end = std::min(hi, (b + 1) * BlockSize);
        for (std::size_t i = b * BlockSize; i < end; ++i) {
            if (m_index[i].end >= from)
                visit(m_index[i]);
        }
    }
}

QList<Segment *> Label::segmentsInRange(double from, double to) const
{
    QList<Segment *> result;
    visitRange(from, to, [&result](const IndexEntry &e) { result.append(e.segment); });
    return result;
}

QList<Label::Span> Label::spansInRange(double from, double to) const
{
    QList<Span> result;
    visitRange(from, to, [&result](const IndexEntry &e) { result.append(Span{ e.start, e.end, e.segment }); });
    return result;
}

} // namespace OVProject

namespace OVProject {

QString Label::checkIndex() const
{
    ensureIndex();
    if (m_index.size() != std::size_t(m_segments.size()))
        return QStringLiteral("indexes %1 of %2 segments").arg(m_index.size()).arg(m_segments.size());
    for (std::size_t i = 0; i < m_index.size(); ++i) {
        const IndexEntry &e = m_index[i];
        if (!e.segment || e.segment->m_label != this || !m_segments.contains(e.segment))
            return QStringLiteral("entry %1 holds a segment of another label").arg(i);
        if (e.start != timeKey(e.segment->start()) || e.end != timeKey(e.segment->end()))
            return QStringLiteral("entry %1 holds stale times of segment %2").arg(i).arg(e.segment->id());
        if (i > 0 && m_index[i - 1].start > e.start)
            return QStringLiteral("entry %1 is out of order").arg(i);
    }
    const auto open = std::count_if(m_segments.cbegin(), m_segments.cend(), [](const Segment *s) { return s->isOpen(); });
    if (open != m_openCount)
        return QStringLiteral("counts %1 open segments of %2").arg(m_openCount).arg(open);
    const std::size_t blocks = (m_index.size() + BlockSize - 1) / BlockSize;
    if (m_blockMaxEnd.size() != blocks)
        return QStringLiteral("%1 block maxima for %2 blocks").arg(m_blockMaxEnd.size()).arg(blocks);
    for (std::size_t b = 0; b < blocks; ++b) {
        double maxEnd = -std::numeric_limits<double>::infinity();
        for (std::size_t i = b * BlockSize; i < std::min(m_index.size(), (b + 1) * BlockSize); ++i)
            maxEnd = std::max(maxEnd, m_index[i].end);
        if (m_blockMaxEnd[b] != maxEnd)
            return QStringLiteral("block %1 keeps the largest end %2 instead of %3").arg(b).arg(m_blockMaxEnd[b]).arg(maxEnd);
    }
    return QString();
}

} // namespace OVProject
