#pragma once

#include <QApplication>
#include <QLockFile>
#include <QStringList>

#include <memory>

class QLocalServer;

// The application object. Only one instance runs per user: the first start holds a lock file and
// listens on a local socket; a later start finds the lock taken, hands its file arguments to the
// running instance through the socket and exits. A lock left by a crashed instance is stale (its
// process is gone) and is taken over, so a crash never blocks the next start.
class OVApplication : public QApplication
{
    Q_OBJECT
public:
    OVApplication(int &argc, char **argv);
    ~OVApplication() override;

    // Tries to become the running instance. False: another instance runs (use sendMessage()).
    bool claimSingleInstance();
    bool isPrimaryInstance() const { return m_primary; }
    // Delivers each message to the running instance; false if it could not be reached.
    bool sendMessages(const QStringList &messages, int timeoutMs = 5000);

    static QString instanceSocketPath();

Q_SIGNALS:
    void messageReceived(const QString &message);

private Q_SLOTS:
    void onNewConnection();

private:
    std::unique_ptr<QLockFile> m_lock;
    QLocalServer *m_server = nullptr;
    bool m_primary = false;
};
