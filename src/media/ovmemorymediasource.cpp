#include "media/ovmemorymediasource.h"

OVMemoryMediaSource::OVMemoryMediaSource(const QByteArray &data, const QString &name, QObject *parent)
    : OVMediaSource(parent), m_data(data), m_name(name)
{
}

qint64 OVMemoryMediaSource::size() const
{
    return m_data.size();
}

bool OVMemoryMediaSource::read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel)
{
    out.clear();
    if (cancel && cancel->load())
        return false;
    if (from < 0 || to <= from || from >= m_data.size())
        return false;
    out = m_data.mid(from, qMin<qint64>(to, m_data.size()) - from);
    return true;
}

QString OVMemoryMediaSource::name() const
{
    return m_name;
}
