#include "project/ovjournalfile.h"

#include "project/ovprojectlogging.h"

#include <QDebug>
#include <QFile>
#include <QtEndian>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace {

const char kHeader[OVJournalFile::HeaderSize] = { 'K', 'V', 'J', '1', '\r', '\n', '\x1a', '\n' };

quint32 checksum(quint64 sequence, const char *payload, quint32 size)
{
    uchar seq[8];
    qToLittleEndian(sequence, seq);
    uLong crc = crc32(0L, Z_NULL, 0);
    crc = crc32(crc, seq, sizeof(seq));
    crc = crc32(crc, reinterpret_cast<const Bytef *>(payload), size);
    return quint32(crc);
}

QString errnoText() { return QString::fromLocal8Bit(std::strerror(errno)); }

bool writeAll(int fd, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size_t(size));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= n;
    }
    return true;
}

} // namespace

OVJournalFile::OVJournalFile()
    : m_syncThread([this] { syncLoop(); })
{
}

OVJournalFile::~OVJournalFile()
{
    close();
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
    m_syncThread.join();
}

OV::Error OVJournalFile::create(const QString &path, const QList<Record> &initial, quint64 nextSequence)
{
    close();
    m_lastError.clear();
    const QString temporary = path + QStringLiteral(".new");
    const QByteArray name = QFile::encodeName(temporary);
    const int fd = ::open(name.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    QByteArray bytes(kHeader, HeaderSize);
    for (const Record &r : initial)
        bytes += frame(r.sequence, r.payload);
    bool ok = fd >= 0 && writeAll(fd, bytes.constData(), bytes.size());
    if (ok && ::rename(name.constData(), QFile::encodeName(path).constData()) != 0)
        ok = false;
    if (!ok) {
        m_lastError = QStringLiteral("The journal %1 cannot be written: %2").arg(path, errnoText());
        if (fd >= 0) {
            ::close(fd);
            ::unlink(name.constData());
        }
        return OV::Error(1, m_lastError);
    }
    m_path = path;
    m_fd = fd;
    m_next = nextSequence == 0 ? 1 : nextSequence;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_syncFd = fd;
    }
    if (!m_dirty.exchange(true))
        m_wake.notify_one();
    return OV::Error();
}

void OVJournalFile::close()
{
    if (m_fd < 0)
        return;
    {
        // Waits for a sync in progress; the descriptor is not the sync thread's any more after this.
        std::lock_guard<std::mutex> guard(m_lock);
        m_syncFd = -1;
    }
    ::close(m_fd);
    m_fd = -1;
}

QByteArray OVJournalFile::frame(quint64 sequence, const QByteArray &payload)
{
    QByteArray bytes(FrameOverhead + payload.size(), Qt::Uninitialized);
    uchar *p = reinterpret_cast<uchar *>(bytes.data());
    qToLittleEndian(quint32(payload.size()), p);
    qToLittleEndian(checksum(sequence, payload.constData(), quint32(payload.size())), p + 4);
    qToLittleEndian(sequence, p + 8);
    std::memcpy(p + FrameOverhead, payload.constData(), size_t(payload.size()));
    return bytes;
}

quint64 OVJournalFile::append(const QByteArray &payload) { return append(QList<QByteArray> { payload }); }

quint64 OVJournalFile::append(const QList<QByteArray> &payloads)
{
    if (m_fd < 0) {
        if (m_lastError.isEmpty())
            m_lastError = QStringLiteral("The journal is not open");
        return 0;
    }
    QByteArray bytes;
    quint64 sequence = m_next;
    for (const QByteArray &payload : payloads) {
        if (quint64(payload.size()) > MaxPayload) {
            m_lastError = QStringLiteral("A journal record of %1 bytes is too large").arg(payload.size());
            return 0;
        }
        bytes += frame(sequence++, payload);
    }
    // One write() per call: the OS has it, whole or (if we are killed inside the call) torn.
    if (!writeAll(m_fd, bytes.constData(), bytes.size())) {
        m_lastError = QStringLiteral("The journal %1 cannot be written: %2").arg(m_path, errnoText());
        return 0;
    }
    m_next = sequence;
    if (!m_dirty.exchange(true))
        m_wake.notify_one();
    return m_next - 1;
}

bool OVJournalFile::syncNow()
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_dirty = false;
    return m_syncFd < 0 || ::fdatasync(m_syncFd) == 0;
}

void OVJournalFile::syncLoop()
{
    std::unique_lock<std::mutex> guard(m_lock);
    while (!m_stop) {
        m_wake.wait(guard, [this] { return m_stop || m_dirty.load(); });
        if (m_stop)
            break;
        m_dirty = false;
        if (m_syncFd >= 0 && ::fdatasync(m_syncFd) != 0)
            qCWarning(lcProject).noquote() << "Journal: sync failed:" << errnoText();
        // At most a few syncs a second: a burst of coding is one sync, not one per key.
        m_wake.wait_for(guard, std::chrono::milliseconds(200), [this] { return m_stop; });
    }
}

OV::Error OVJournalFile::read(const QString &path, Contents *contents)
{
    *contents = Contents();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return OV::Error(1, QStringLiteral("The journal %1 cannot be read: %2").arg(path, file.errorString()));
    const OV::Error error = read(&file, contents);
    return error.isOk() ? error : OV::Error(error.code(), QStringLiteral("%1: %2").arg(path, error.message()));
}

OV::Error OVJournalFile::read(QIODevice *file, Contents *contents)
{
    *contents = Contents();
    char header[HeaderSize];
    if (file->read(header, HeaderSize) != HeaderSize || std::memcmp(header, kHeader, HeaderSize) != 0)
        return OV::Error(2, QStringLiteral("This is not a journal of Kavot"));
    const qint64 size = file->size();
    qint64 pos = HeaderSize;
    quint64 previous = 0;
    while (pos < size) {
        uchar head[FrameOverhead];
        if (size - pos < FrameOverhead || file->read(reinterpret_cast<char *>(head), FrameOverhead) != FrameOverhead)
            break;
        const quint32 length = qFromLittleEndian<quint32>(head);
        const quint32 crc = qFromLittleEndian<quint32>(head + 4);
        const quint64 sequence = qFromLittleEndian<quint64>(head + 8);
        // The length is checked against what the file holds before anything is allocated.
        if (length > MaxPayload || qint64(length) > size - pos - FrameOverhead)
            break;
        QByteArray payload = file->read(length);
        if (payload.size() != qint64(length) || checksum(sequence, payload.constData(), length) != crc)
            break;
        // Sequences only grow; one that does not is left over from something else.
        if (sequence <= previous)
            break;
        previous = sequence;
        contents->records.append({ sequence, std::move(payload) });
        pos += FrameOverhead + length;
    }
    contents->ignoredBytes = size - pos;
    return OV::Error();
}
