#include "media/ovaudiosystem.h"

#include "media/ovmedialogging.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QObject>

#include <portaudio.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

struct Shared
{
    std::mutex mutex;
    std::condition_variable changed;
    OVAudioSystem::State state = OVAudioSystem::NotStarted;
    std::chrono::steady_clock::time_point started;
    QString error;
    qint64 scanMs = 0;
    int deviceCount = 0;
    // A wait that ran out, in ms (0: none did).
    int waitedInVain = 0;
    bool outcomeLogged = false;
};

// Never destroyed: a scan that hangs keeps its thread, and that thread may still write here while
// the process ends.
Shared &shared()
{
    static Shared *s = new Shared;
    return *s;
}

// Logs nothing: it may end while the process is ending and the log is gone. The waiters log.
void scan()
{
    QElapsedTimer timer;
    timer.start();
    const PaError err = Pa_Initialize();
    const int devices = err == paNoError ? Pa_GetDeviceCount() : 0;
    Shared &s = shared();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.state = err == paNoError ? OVAudioSystem::Ready : OVAudioSystem::Failed;
        s.error = err == paNoError ? QString() : QString::fromUtf8(Pa_GetErrorText(err));
        s.scanMs = timer.elapsed();
        s.deviceCount = devices;
    }
    s.changed.notify_all();
}

void logOutcomeOnce(Shared &s)
{
    if (s.outcomeLogged || s.state == OVAudioSystem::Starting || s.state == OVAudioSystem::NotStarted)
        return;
    s.outcomeLogged = true;
    if (s.state == OVAudioSystem::Ready)
        qCInfo(lcMedia) << "AudioSystem: sound devices scanned in" << s.scanMs << "ms," << s.deviceCount << "device(s)";
    else
        qCWarning(lcMedia).noquote() << "AudioSystem: PortAudio could not start:" << s.error;
}

} // namespace

void OVAudioSystem::startInBackground()
{
    Shared &s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.state != NotStarted)
        return;
    s.state = Starting;
    s.started = std::chrono::steady_clock::now();
    // Detached: a scan that never ends must not hold up the end of the process.
    try {
        std::thread(scan).detach();
    } catch (const std::system_error &e) {
        s.state = Failed;
        s.error = QString::fromLocal8Bit(e.what());
    }
}

bool OVAudioSystem::waitUntilReady(int timeoutMs, const std::function<bool()> &stop)
{
    startInBackground();
    Shared &s = shared();
    std::unique_lock<std::mutex> lock(s.mutex);
    const auto deadline = s.started + std::chrono::milliseconds(timeoutMs);
    // In slices, so that a waiter asked to stop is not held up by a scan that hangs.
    constexpr auto Slice = std::chrono::milliseconds(50);
    while (s.state == Starting && s.waitedInVain == 0 && !(stop && stop())) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            s.waitedInVain = std::max(1, timeoutMs);
            qCWarning(lcMedia) << "AudioSystem: the sound device scan has not ended" << timeoutMs
                               << "ms after it began; going on without sound";
            break;
        }
        s.changed.wait_until(lock, std::min(deadline, now + Slice));
    }
    logOutcomeOnce(s);
    return s.state == Ready;
}

bool OVAudioSystem::waitForScanToEnd(int waitMs)
{
    Shared &s = shared();
    std::unique_lock<std::mutex> lock(s.mutex);
    return s.changed.wait_for(lock, std::chrono::milliseconds(std::max(0, waitMs)), [&s] { return s.state != Starting; });
}

OVAudioSystem::State OVAudioSystem::state()
{
    Shared &s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.state;
}

QString OVAudioSystem::unavailableReason()
{
    Shared &s = shared();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.state == Failed)
        return QObject::tr("the sound system could not be started (%1)").arg(s.error);
    if (s.state == Starting && s.waitedInVain > 0)
        return QObject::tr("the sound system did not answer within %1 s").arg(s.waitedInVain / 1000.0);
    return QString();
}
