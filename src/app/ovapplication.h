#pragma once

#include <QApplication>
#include <QLockFile>
#include <QStringList>

#include <memory>

class QLocalServer;

// The application object. Only one instance runs per user: the first start holds a lock file and
// listens on a local socket; a later start finds the lock taken, hands its file arguments to the
// running instance through the socket and exits. A lock left by a crashed instance is stale (its
// process is gone) and is taken over, so a crash never blocks the next start. A killed process
// keeps its lock and its socket until the kernel has freed its memory, which for a big process
// under load takes seconds: the running instance confirms what it was handed, and a start whose
// hand-over nobody confirms waits for the lock instead of leaving with its files.
class OVApplication : public QApplication
{
    Q_OBJECT
public:
    OVApplication(int &argc, char **argv);
    ~OVApplication() override;

    // Tries to become the running instance, waiting up to `waitMs` for a lock whose holder is
    // gone or on its way out. False: another process holds it (use sendMessages()). A lock that
    // cannot be made at all (no runtime folder) does not stop Kavot: it runs without the check.
    bool claimSingleInstance(int waitMs = 200);
    bool isPrimaryInstance() const { return m_primary; }
    // Lets the next start take over at once: for an end that skips the usual teardown.
    void releaseSingleInstance();
    // Delivers each message to the running instance; true only when it confirmed having them.
    bool sendMessages(const QStringList &messages, int timeoutMs = 5000);
    // The process holding the instance lock, 0 when unknown.
    qint64 lockHolder() const;

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
