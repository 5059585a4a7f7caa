#include "log/nxdebugthreadhelper.h"

#include <QCoreApplication>

void NXDebugThreadHelper::post(const QByteArray &data)
{
    QCoreApplication::postEvent(this, new DebugEvent(data));
}

bool NXDebugThreadHelper::event(QEvent *event)
{
    // Only our own event class is accepted; everything else goes the usual way.
    if (event->type() == DebugEvent::EventType) {
        Q_EMIT dataReceived(static_cast<DebugEvent *>(event)->data());
        return true;
    }
    return QObject::event(event);
}
