#include "log/nxlogreceiverslist.h"

#include "log/nxlogevent.h"

#include <QCoreApplication>

namespace NXLog {

void NXLogReceiversList::add(QObject *receiver)
{
    if (!receiver)
        return;
    {
        QMutexLocker lock(&m_mutex);
        if (m_receivers.contains(receiver))
            return;
        m_receivers.append(receiver);
    }
    // Direct: destroyed() is emitted in the receiver's destructor, on whatever thread deletes it,
    // and the removal must be done before that destructor drops the receiver's posted events.
    connect(receiver, &QObject::destroyed, this, &NXLogReceiversList::onObjectDestroyed,
            Qt::DirectConnection);
}

void NXLogReceiversList::remove(QObject *receiver)
{
    QMutexLocker lock(&m_mutex);
    if (m_receivers.removeAll(receiver) > 0)
        disconnect(receiver, &QObject::destroyed, this, &NXLogReceiversList::onObjectDestroyed);
}

int NXLogReceiversList::count() const
{
    QMutexLocker lock(&m_mutex);
    return int(m_receivers.size());
}

void NXLogReceiversList::post(const QString &line)
{
    QMutexLocker lock(&m_mutex);
    for (QObject *receiver : std::as_const(m_receivers))
        QCoreApplication::postEvent(receiver, new LogEvent(line));
}

void NXLogReceiversList::onObjectDestroyed(QObject *object)
{
    QMutexLocker lock(&m_mutex);
    m_receivers.removeAll(object);
}

} // namespace NXLog
