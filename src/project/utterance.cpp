#include "project/utterance.h"

namespace OVProject {

Utterance::Utterance(const Id &id, QObject *parent)
    : BaseNode(id, parent)
{
}

bool Utterance::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const Utterance *>(other);
    if (!o)
        return false;
    m_text = o->m_text;
    m_speaker = o->m_speaker;
    m_startTime = o->m_startTime;
    m_endTime = o->m_endTime;
    Q_EMIT changed();
    return true;
}

QString Utterance::contentHash() const
{
    return md5Hex(QString::number(m_startTime, 'g', 6) + QString::number(m_endTime, 'g', 6) + m_text
        + m_speaker + m_id);
}

void Utterance::setText(const QString &text)
{
    if (text == m_text)
        return;
    m_text = text;
    Q_EMIT changed();
}

void Utterance::setSpeaker(const QString &speaker)
{
    if (speaker == m_speaker)
        return;
    m_speaker = speaker;
    Q_EMIT changed();
}

void Utterance::setStartTime(double t)
{
    if (t == m_startTime)
        return;
    m_startTime = t;
    Q_EMIT changed();
}

void Utterance::setEndTime(double t)
{
    if (t == m_endTime)
        return;
    m_endTime = t;
    Q_EMIT changed();
}

} // namespace OVProject
