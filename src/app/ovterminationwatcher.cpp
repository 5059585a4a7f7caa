#include "app/ovterminationwatcher.h"

#include "app/ovapplogging.h"

#include <QDebug>
#include <QSocketNotifier>

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_fds[2] = { -1, -1 };

void onSignal(int sig)
{
    const char byte = char(sig);
    // Nothing else is safe here; a full pipe just means a request is already pending.
    [[maybe_unused]] ssize_t n = ::write(g_fds[0], &byte, 1);
}
} // namespace

OVTerminationWatcher::OVTerminationWatcher(QObject *parent) : QObject(parent)
{
    if (g_fds[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, g_fds) != 0) {
        qCWarning(lcApp) << "Termination watcher: socketpair failed";
        return;
    }
    m_notifier = new QSocketNotifier(g_fds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &OVTerminationWatcher::onReadable);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
}

OVTerminationWatcher::~OVTerminationWatcher()
{
    signal(SIGTERM, SIG_DFL);
    signal(SIGINT, SIG_DFL);
}

void OVTerminationWatcher::onReadable()
{
    char byte = 0;
    while (::read(g_fds[1], &byte, 1) == 1) {
        qCInfo(lcApp).noquote() << "Termination requested by signal" << int(byte);
        Q_EMIT terminationRequested(int(byte));
    }
}
