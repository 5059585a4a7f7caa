#include "media/ovfilemediasource.h"

#include "media/ovmedialogging.h"

OVFileMediaSource::OVFileMediaSource(const QString &path, QObject *parent)
    : OVMediaSource(parent), m_file(path)
{
}

OVFileMediaSource::~OVFileMediaSource() = default;

bool OVFileMediaSource::open()
{
    QMutexLocker lock(&m_mutex);
    if (m_file.isOpen())
        return true;
    if (!m_file.open(QIODevice::ReadOnly)) {
        qCWarning(lcMedia) << "OVFileMediaSource: cannot open" << m_file.fileName() << m_file.errorString();
        return false;
    }
    return true;
}

bool OVFileMediaSource::isOpen() const
{
    QMutexLocker lock(&m_mutex);
    return m_file.isOpen();
}

qint64 OVFileMediaSource::size() const
{
    QMutexLocker lock(&m_mutex);
    return m_file.isOpen() ? m_file.size() : -1;
}

bool OVFileMediaSource::read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel)
{
    out.clear();
    if (cancel && cancel->load())
        return false;
    QMutexLocker lock(&m_mutex);
    if (!m_file.isOpen() || from < 0 || to <= from || from >= m_file.size())
        return false;
    if (!m_file.seek(from))
        return false;
    out = m_file.read(qMin(to, m_file.size()) - from);
    return !out.isEmpty();
}

QString OVFileMediaSource::name() const
{
    QMutexLocker lock(&m_mutex);
    return m_file.fileName();
}

QString OVFileMediaSource::errorString() const
{
    QMutexLocker lock(&m_mutex);
    if (m_file.isOpen())
        return QString();
    return m_file.exists() ? QStringLiteral("The file cannot be read: ") + m_file.errorString()
                           : QStringLiteral("The file does not exist: ") + m_file.fileName();
}
