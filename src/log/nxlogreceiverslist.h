#pragma once

#include <QList>
#include <QMutex>
#include <QObject>

namespace NXLog {

// The live receivers of log lines. The handler posts to them from any thread while receivers
// come and go on theirs, so every access goes through the one mutex.
class NXLogReceiversList : public QObject
{
    Q_OBJECT
public:
    void add(QObject *receiver);
    void remove(QObject *receiver);
    int count() const;

    // Posts a LogEvent with `line` to every receiver. A receiver that is being destroyed has
    // already been removed (its destroyed() is handled directly, under the same mutex).
    void post(const QString &line);

private Q_SLOTS:
    void onObjectDestroyed(QObject *object);

private:
    mutable QMutex m_mutex;
    // -- protected by m_mutex
    QList<QObject *> m_receivers;
};

} // namespace NXLog
