#include "project/segment.h"

#include "project/label.h"

namespace OVProject {

Segment::Segment(const Id &id, QObject *parent)
    : BaseNode(id, parent)
{
}

Segment::Segment(double start, double end, const Id &id, QObject *parent)
    : BaseNode(id, parent)
    , m_start(start)
    , m_end(end)
{
}

Segment::~Segment()
{
    // Deleting a segment is how it is removed; its label drops it on destroyed(), when only the
    // QObject is left, so the label is told here which id goes.
    if (m_label)
        m_label->segmentDestroying(this);
}

bool Segment::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const Segment *>(other);
    if (!o)
        return false;
    // The own id is kept: a copy is a new segment with the same content.
    m_description = o->m_description;
    m_text = o->m_text;
    applyTimes(o->m_start, o->m_end);
    Q_EMIT changed();
    return true;
}

QString Segment::contentHash() const
{
    return md5Hex(
        QString::number(m_start, 'g', 6) + QString::number(m_end, 'g', 6) + m_text + m_description + m_id);
}

void Segment::applyTimes(double start, double end)
{
    if (start == m_start && end == m_end)
        return;
    const double oldStart = m_start;
    const double oldEnd = m_end;
    m_start = start;
    m_end = end;
    // The label's time index is updated before anyone hears changed(), so a view that queries
    // in its slot already sees the new position.
    if (m_label)
        m_label->segmentTimesChanged(this, oldStart, oldEnd);
}

void Segment::idChanged(const Id &oldId)
{
    if (m_label)
        m_label->segmentIdChanged(this, oldId);
}

void Segment::setStart(double start) { setTimes(start, m_end); }

void Segment::setEnd(double end) { setTimes(m_start, end); }

void Segment::setTimes(double start, double end)
{
    if (start == m_start && end == m_end)
        return;
    applyTimes(start, end);
    Q_EMIT changed();
}

void Segment::setDescription(const QString &description)
{
    if (description == m_description)
        return;
    m_description = description;
    Q_EMIT changed();
}

void Segment::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    Q_EMIT changed();
}

} // namespace OVProject
