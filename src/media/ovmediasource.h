#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

#include <atomic>

// A random-access byte source the decoder reads through. It may be a local file or a download that
// is still being cached; in the second case read() blocks until the bytes are there.
//
// Contract of read(): fills `out` with the bytes [from, to) (fewer at the end of the source) and
// returns true; returns false on failure, at or past the end, or when `cancel` became true while
// waiting. A blocking implementation waits in a loop that re-checks `cancel`, and wakeReaders()
// must make such a wait re-check at once: the decoder calls it from another thread when it is
// asked to stop. Nothing is sticky, so the same source can be read again by a new decoder run.
class OVMediaSource : public QObject
{
    Q_OBJECT

public:
    explicit OVMediaSource(QObject *parent = nullptr) : QObject(parent) {}
    ~OVMediaSource() override = default;

    virtual qint64 size() const = 0;
    virtual bool read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel) = 0;
    // Wakes every read() that is waiting for data so it re-checks its cancel flag. Thread-safe.
    virtual void wakeReaders() {}
    // What the log shows for this source (a path or a URL).
    virtual QString name() const = 0;
    // Why the source cannot be read at all (e.g. the file is missing); empty while it is readable.
    virtual QString errorString() const { return QString(); }

Q_SIGNALS:
    // Emitted by sources that have to wait for data (from the reading thread).
    void waitingOnData();
    void dataRetrieved();
    void completelyCached(const QString &cacheFileName);
};
