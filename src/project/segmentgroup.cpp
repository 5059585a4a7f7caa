#include "project/segmentgroup.h"

namespace OVProject {

SegmentGroup::SegmentGroup(const Id &id, QObject *parent)
    : BaseNode(id, parent)
{
}

bool SegmentGroup::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const SegmentGroup *>(other);
    if (!o)
        return false;
    m_name = o->m_name;
    m_segmentIds = o->m_segmentIds;
    Q_EMIT changed();
    return true;
}

QString SegmentGroup::contentHash() const
{
    return md5Hex(m_name + m_segmentIds.join(QLatin1Char(',')) + m_id);
}

void SegmentGroup::setName(const QString &name)
{
    if (name == m_name)
        return;
    m_name = name;
    Q_EMIT changed();
}

void SegmentGroup::setSegmentIds(const QList<Id> &ids)
{
    if (ids == m_segmentIds)
        return;
    m_segmentIds = ids;
    Q_EMIT changed();
}

void SegmentGroup::addSegmentId(const Id &segmentId)
{
    if (segmentId.isEmpty() || m_segmentIds.contains(segmentId))
        return;
    m_segmentIds.append(segmentId);
    Q_EMIT changed();
}

void SegmentGroup::removeSegmentId(const Id &segmentId)
{
    if (m_segmentIds.removeAll(segmentId) > 0)
        Q_EMIT changed();
}

} // namespace OVProject
