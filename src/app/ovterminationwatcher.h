#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM and SIGINT into a Qt signal on the GUI thread (self-pipe), so a desktop logout or
// Ctrl+C ends the event loop cleanly instead of killing the process mid-write.
class OVTerminationWatcher : public QObject
{
    Q_OBJECT
public:
    explicit OVTerminationWatcher(QObject *parent = nullptr);
    ~OVTerminationWatcher() override;

    bool isInstalled() const { return m_notifier != nullptr; }

Q_SIGNALS:
    void terminationRequested(int signal);

private Q_SLOTS:
    void onReadable();

private:
    QSocketNotifier *m_notifier = nullptr;
};
