#pragma once

#include "media/ovmediasource.h"

// Bytes already in memory: media embedded in resources, and inputs under test.
class OVMemoryMediaSource : public OVMediaSource
{
    Q_OBJECT

public:
    explicit OVMemoryMediaSource(const QByteArray &data, const QString &name = QStringLiteral("memory"),
                                 QObject *parent = nullptr);

    qint64 size() const override;
    bool read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel) override;
    QString name() const override;

private:
    // Never changed after construction, so reads from any thread need no lock.
    const QByteArray m_data;
    const QString m_name;
};
