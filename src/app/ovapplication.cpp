#include "app/ovapplication.h"

#include "app/ovapplogging.h"

#include <QDataStream>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace {

QString runtimeFolder()
{
    QString dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (dir.isEmpty())
        dir = QDir::tempPath();
    QDir().mkpath(dir);
    return dir;
}

} // namespace

OVApplication::OVApplication(int &argc, char **argv) : QApplication(argc, argv) {}

OVApplication::~OVApplication()
{
    if (m_server)
        m_server->close();
}

QString OVApplication::instanceSocketPath()
{
    return runtimeFolder() + QStringLiteral("/kavot-instance.sock");
}

bool OVApplication::claimSingleInstance()
{
    const QString lockPath = runtimeFolder() + QStringLiteral("/kavot-instance.lock");
    m_lock = std::make_unique<QLockFile>(lockPath);
    // A lock whose owner process is gone is taken over by tryLock (stale lock detection).
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(200)) {
        qCInfo(lcApp).noquote() << "Another instance holds" << lockPath;
        m_lock.reset();
        return false;
    }
    m_primary = true;
    const QString socketPath = instanceSocketPath();
    // We own the lock, so any socket file left behind belongs to a dead instance.
    QLocalServer::removeServer(socketPath);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(socketPath)) {
        qCWarning(lcApp).noquote() << "Single instance: cannot listen on" << socketPath << ":" << m_server->errorString();
    } else {
        connect(m_server, &QLocalServer::newConnection, this, &OVApplication::onNewConnection);
    }
    return true;
}

bool OVApplication::sendMessages(const QStringList &messages, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(instanceSocketPath());
    if (!socket.waitForConnected(timeoutMs)) {
        qCWarning(lcApp).noquote() << "Single instance: cannot reach the running instance:" << socket.errorString();
        return false;
    }
    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_4);
    out << messages;
    socket.write(payload);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    // Wait for the receiver to close: it has then read everything.
    socket.waitForDisconnected(timeoutMs);
    return true;
}

void OVApplication::onNewConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            QDataStream in(socket);
            in.setVersion(QDataStream::Qt_6_4);
            in.startTransaction();
            QStringList messages;
            in >> messages;
            if (!in.commitTransaction())
                return; // wait for the rest
            socket->disconnectFromServer();
            for (const QString &message : std::as_const(messages))
                Q_EMIT messageReceived(message);
        });
    }
}
