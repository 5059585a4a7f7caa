#pragma once

#include "log/overror.h"

#include <QByteArray>
#include <QList>
#include <QString>

class QIODevice;

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

// An append-only file of small records, each framed as
//   u32 payload length | u32 crc32 of (sequence, payload) | u64 sequence | payload   (little endian)
// behind the 8-byte header "KVJ1\r\n\x1a\n". Every append is one write() straight to the OS, so a
// killed process loses nothing that append() returned for; syncing to the disk (against power
// loss) happens on a thread of its own so the caller never waits for the device. A reader stops
// at the first frame that is short, too long or fails its checksum: that is the torn end of a
// write the process did not live to finish, and everything before it is still good.
class OVJournalFile
{
public:
    struct Record
    {
        quint64 sequence = 0;
        QByteArray payload;
    };
    struct Contents
    {
        QList<Record> records;
        // Bytes after the last good record (a torn or damaged tail); they are ignored.
        qint64 ignoredBytes = 0;
    };

    // No payload may be larger; a length field above it is damage, not a record.
    static constexpr quint32 MaxPayload = 64u * 1024 * 1024;
    static constexpr int HeaderSize = 8;
    static constexpr int FrameOverhead = 16;

    OVJournalFile();
    ~OVJournalFile();
    OVJournalFile(const OVJournalFile &) = delete;
    OVJournalFile &operator=(const OVJournalFile &) = delete;

    // Replaces the file at `path` by one holding `initial` (their sequences kept) and appends
    // after them from `nextSequence` on. The new file is written beside the old one and renamed
    // over it, so there is a complete journal at `path` at every moment.
    OV::Error create(const QString &path, const QList<Record> &initial, quint64 nextSequence);
    void close();
    bool isOpen() const { return m_fd >= 0; }
    QString path() const { return m_path; }

    // Appends one record and returns its sequence number, 0 when the write failed (lastError()).
    quint64 append(const QByteArray &payload);
    // Appends many records with one write (a whole project's content); the last sequence, or 0.
    quint64 append(const QList<QByteArray> &payloads);
    quint64 lastSequence() const { return m_next - 1; }
    QString lastError() const { return m_lastError; }

    // Waits until everything appended so far is on the disk (for tests and the end of a session).
    bool syncNow();

    // Reads every good record of the file at `path`, or of a device positioned at the header.
    static OV::Error read(const QString &path, Contents *contents);
    static OV::Error read(QIODevice *device, Contents *contents);
    // The frame of one record, as append() writes it.
    static QByteArray frame(quint64 sequence, const QByteArray &payload);

private:
    void syncLoop();

    QString m_path;
    int m_fd = -1;
    quint64 m_next = 1;
    QString m_lastError;

    // The sync thread only reads m_syncFd under m_lock; the owner changes it under the same lock.
    std::mutex m_lock;
    std::condition_variable m_wake;
    int m_syncFd = -1;
    bool m_stop = false;
    std::atomic<bool> m_dirty { false };
    std::thread m_syncThread;
};
