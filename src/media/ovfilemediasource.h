#pragma once

#include "media/ovmediasource.h"

#include <QFile>
#include <QMutex>

// A local file. Reads never block on missing data: the file is complete.
class OVFileMediaSource : public OVMediaSource
{
    Q_OBJECT

public:
    explicit OVFileMediaSource(const QString &path, QObject *parent = nullptr);
    ~OVFileMediaSource() override;

    // Opens the file; false (and a log line) when it cannot be read.
    bool open();
    bool isOpen() const;

    qint64 size() const override;
    bool read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel) override;
    QString name() const override;
    QString errorString() const override;

private:
    mutable QMutex m_mutex;
    // -- guarded by m_mutex
    QFile m_file;
};
