#include "app/ovapplication.h"

#include "app/ovapplogging.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>
#include <QThread>

namespace {

// What the running instance answers once it has read a second start's messages.
const QByteArray kReceived = QByteArrayLiteral("received\n");

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
    releaseSingleInstance();
}

void OVApplication::releaseSingleInstance()
{
    if (m_server)
        m_server->close();
    if (m_lock)
        m_lock->unlock();
    m_primary = false;
}

QString OVApplication::instanceSocketPath()
{
    return runtimeFolder() + QStringLiteral("/kavot-instance.sock");
}

bool OVApplication::claimSingleInstance(int waitMs)
{
    const QString lockPath = runtimeFolder() + QStringLiteral("/kavot-instance.lock");
    m_lock = std::make_unique<QLockFile>(lockPath);
    // Only a holder whose process is gone is stale, however old its lock: an instance may run for days.
    m_lock->setStaleLockTime(0);
    // Our own short tries instead of one tryLock(waitMs): its pauses double up to seconds, and a
    // lock freed by a dying holder is to be taken the moment it is free.
    QDeadlineTimer deadline(qMax(0, waitMs));
    while (!m_lock->tryLock(0)) {
        if (m_lock->error() != QLockFile::LockFailedError) {
            qCWarning(lcApp).noquote() << "Single instance: the lock" << lockPath
                                       << "cannot be made; running without the check for another instance";
            m_lock.reset();
            m_primary = true;
            return true;
        }
        if (deadline.hasExpired()) {
            qCInfo(lcApp).noquote() << "Another instance holds" << lockPath << "(process" << lockHolder() << ")";
            return false;
        }
        QThread::msleep(50);
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

qint64 OVApplication::lockHolder() const
{
    qint64 pid = 0;
    if (!m_lock || !m_lock->getLockInfo(&pid, nullptr, nullptr))
        return 0;
    return pid;
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
    // Written is not received: a killed instance's socket still takes bytes until the kernel
    // closes it. Only the receiver's answer says the messages arrived.
    QByteArray answer;
    QDeadlineTimer deadline(timeoutMs);
    while (answer.size() < kReceived.size() && socket.state() == QLocalSocket::ConnectedState && !deadline.hasExpired()) {
        socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime())));
        answer += socket.readAll();
    }
    answer += socket.readAll();
    if (!answer.startsWith(kReceived)) {
        qCWarning(lcApp).noquote() << "Single instance: the running instance did not confirm the hand-over";
        return false;
    }
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
            socket->write(kReceived);
            socket->flush();
            socket->disconnectFromServer();
            for (const QString &message : std::as_const(messages))
                Q_EMIT messageReceived(message);
        });
    }
}
