#include "media/ovaudioout.h"

#include "media/ovaudioplayerinterface.h"
#include "media/ovaudiosync.h"
#include "media/ovaudiosystem.h"
#include "media/ovmedialogging.h"
#include "media/ovplaybackclock.h"

#include <QDebug>

#include <portaudio.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// A missing sound card is normal on servers and in tests: say so once per process, not at every
// open.
std::atomic<bool> s_noDeviceReported{false};

} // namespace

struct OVAudioOutCallbacks
{
    static int stream(const void *, void *output, unsigned long frames,
                      const PaStreamCallbackTimeInfo *time, PaStreamCallbackFlags flags, void *userData)
    {
        static_cast<OVAudioOut *>(userData)->process(static_cast<qint16 *>(output), frames,
                                                     time ? time->outputBufferDacTime : 0.0,
                                                     time ? time->currentTime : 0.0,
                                                     (flags & paOutputUnderflow) != 0);
        return paContinue;
    }

    static void finished(void *) {}
};

OVAudioOut::OVAudioOut(QObject *parent)
    : QObject(parent), m_ring(static_cast<std::size_t>(RingSeconds * RingRate) * Channels),
      m_scratch(std::make_unique<qint16[]>(ScratchFrames * Channels))
{
    // The device scan runs while the user is still choosing what to open.
    OVAudioSystem::startInBackground();
}

OVAudioOut::~OVAudioOut()
{
    close();
}

void OVAudioOut::reportNoSound(const QString &reason, const QString &detail)
{
    if (!s_noDeviceReported.exchange(true))
        qCWarning(lcMedia).noquote() << "AudioOut: no sound output, playback stays silent:" << reason << detail;
    Q_EMIT unavailable(reason);
}

void OVAudioOut::setPlayer(OVAudioPlayerInterface *player)
{
    if (m_playerObject)
        disconnect(m_playerObject, nullptr, this, nullptr);
    m_player = player;
    m_clock.store(player ? player->playbackClock() : nullptr, std::memory_order_release);
    m_playerObject = player ? player->playerObject() : nullptr;
    if (!m_playerObject)
        return;
    connect(m_playerObject, SIGNAL(initFinished(int)), this, SLOT(onPlayerInitFinished(int)));
    connect(m_playerObject, SIGNAL(videoStarted()), this, SLOT(onPlayerStateChanged()));
    connect(m_playerObject, SIGNAL(videoFinished()), this, SLOT(onPlayerFinished()));
    connect(m_playerObject, SIGNAL(stopRequested()), this, SLOT(onPlayerStopRequested()));
    connect(m_playerObject, SIGNAL(stateChanged()), this, SLOT(onPlayerStateChanged()));
}

bool OVAudioOut::open(int sampleRate, double suggestedLatency)
{
    close();
    // The ring is left alone: the decoding thread may already be writing the first sound of
    // this stream into it (a start or seek flushes older sound through the queues' serial).
    m_ringReadAtOpen = m_ring.readCount();
    m_framesConsumed.store(0, std::memory_order_release);
    m_underflows.store(0, std::memory_order_relaxed);
    m_sampleRate = sampleRate;

    if (sampleRate <= 0) {
        qCWarning(lcMedia) << "AudioOut: invalid sample rate:" << sampleRate;
        return false;
    }
    if (!OVAudioSystem::waitUntilReady()) {
        reportNoSound(OVAudioSystem::unavailableReason(), QString());
        return false;
    }
    const PaDeviceIndex device = Pa_GetDefaultOutputDevice();
    const PaDeviceInfo *info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
    if (!info) {
        reportNoSound(tr("no sound output device was found"), QStringLiteral("(default output: %1)").arg(device));
        return false;
    }

    PaStreamParameters params;
    std::memset(&params, 0, sizeof params);
    params.device = device;
    params.channelCount = Channels;
    params.sampleFormat = paInt16;
    params.suggestedLatency =
        suggestedLatency > 0.0 ? suggestedLatency : info->defaultLowOutputLatency;
    params.hostApiSpecificStreamInfo = nullptr;

    PaStream *stream = nullptr;
    PaError err = Pa_OpenStream(&stream, nullptr, &params, sampleRate, FramesPerBuffer, paClipOff,
                                &OVAudioOutCallbacks::stream, this);
    if (err != paNoError) {
        reportNoSound(tr("the sound device refused to play (%1)").arg(QString::fromUtf8(Pa_GetErrorText(err))),
                      QString::fromUtf8(info->name));
        return false;
    }
    err = Pa_SetStreamFinishedCallback(stream, &OVAudioOutCallbacks::finished);
    if (err != paNoError) {
        qCWarning(lcMedia) << "AudioOut: Pa_SetStreamFinishedCallback failed:" << Pa_GetErrorText(err);
        Pa_CloseStream(stream);
        return false;
    }
    m_stream = stream;
    const PaStreamInfo *streamInfo = Pa_GetStreamInfo(stream);
    m_streamLatency.store(streamInfo ? streamInfo->outputLatency : params.suggestedLatency,
                          std::memory_order_relaxed);
    qCInfo(lcMedia) << "AudioOut: opened" << info->name << "at" << sampleRate << "Hz, latency"
             << params.suggestedLatency << "reported" << m_streamLatency.load();
    return true;
}

void OVAudioOut::close()
{
    if (!m_stream)
        return;
    stop();
    Pa_CloseStream(static_cast<PaStream *>(m_stream));
    m_stream = nullptr;
}

bool OVAudioOut::start()
{
    if (!m_stream)
        return false;
    m_stopped.store(false, std::memory_order_release);
    auto *stream = static_cast<PaStream *>(m_stream);
    if (Pa_IsStreamActive(stream) == 1)
        return true;
    const PaError err = Pa_StartStream(stream);
    if (err != paNoError) {
        qCWarning(lcMedia) << "AudioOut: Pa_StartStream failed:" << Pa_GetErrorText(err);
        return false;
    }
    return true;
}

void OVAudioOut::stop()
{
    m_stopped.store(true, std::memory_order_release);
    if (!m_stream)
        return;
    auto *stream = static_cast<PaStream *>(m_stream);
    if (Pa_IsStreamStopped(stream) == 0) {
        const PaError err = Pa_StopStream(stream);
        if (err != paNoError)
            qCWarning(lcMedia) << "AudioOut: Pa_StopStream failed:" << Pa_GetErrorText(err);
    }
}

quint64 OVAudioOut::framesPlayed() const
{
    const quint64 read = m_ring.readCount();
    return read > m_ringReadAtOpen ? (read - m_ringReadAtOpen) / Channels : 0;
}

bool OVAudioOut::isRunning() const
{
    return m_stream && Pa_IsStreamActive(static_cast<PaStream *>(m_stream)) == 1;
}

void OVAudioOut::setGain(double gain)
{
    qCDebug(lcMedia) << "Setting volume to:" << gain;
    m_gain.store(std::max(0.0, gain), std::memory_order_relaxed);
}

void OVAudioOut::setMuted(bool muted)
{
    m_muted.store(muted, std::memory_order_relaxed);
}

void OVAudioOut::process(qint16 *out, unsigned long frames, double dacTime, double currentTime,
                         bool underflow)
{
    if (underflow)
        m_underflows.fetch_add(1, std::memory_order_relaxed);
    m_ring.applyFlush();
    const double gain = m_gain.load(std::memory_order_relaxed);
    const bool muted = m_muted.load(std::memory_order_relaxed);
    const OVPlaybackClock *clock = m_clock.load(std::memory_order_acquire);
    if (m_stopped.load(std::memory_order_acquire)) {
        std::memset(out, 0, frames * Channels * sizeof(qint16));
    } else if (!clock) {
        fillBuffer(m_ring, out, frames, gain, muted);
    } else {
        const double origin = clock->soundOrigin();
        // Some host APIs give no buffer times; their stream latency is the best there is.
        double latency = dacTime - currentTime;
        if (!(dacTime > 0.0 && latency >= 0.0 && latency < 2.0))
            latency = m_streamLatency.load(std::memory_order_relaxed);
        m_lastLatency.store(latency, std::memory_order_relaxed);
        if (std::isnan(origin)) {
            // Paused, seeking or not started: nothing is due, and nothing is consumed.
            std::memset(out, 0, frames * Channels * sizeof(qint16));
        } else {
            const double heardAt = OVPlaybackClock::preciseSystemNow() + latency - origin;
            fillInStep(m_ring, out, frames, gain, muted, heardAt, m_sampleRate, m_scratch.get(),
                       ScratchFrames);
        }
    }
    m_framesConsumed.fetch_add(frames, std::memory_order_acq_rel);
}

std::size_t OVAudioOut::fillInStep(OVAudioRing &ring, qint16 *out, unsigned long frames, double gain,
                                   bool muted, double heardAt, int rate, qint16 *scratch,
                                   std::size_t scratchFrames)
{
    const std::size_t total = static_cast<std::size_t>(frames) * Channels;
    double due = 0.0;
    if (!ring.timeAtRead(Channels, rate, &due)) {
        std::memset(out, 0, total * sizeof(qint16));
        return 0;
    }
    OVAudioSync::Plan plan = OVAudioSync::plan(due - heardAt, frames, ring.readAvailable() / Channels, rate);
    if (plan.read > scratchFrames) {
        // Only when a host asks for huge buffers: play them as they come.
        plan.read = std::min(plan.stretchTo, scratchFrames);
        plan.stretchTo = plan.read;
    }
    std::size_t taken = ring.skip(plan.skip * Channels);
    taken += ring.readSome(scratch, plan.read * Channels);
    std::memset(out, 0, plan.silence * Channels * sizeof(qint16));
    qint16 *dst = out + plan.silence * Channels;
    for (std::size_t j = 0; j < plan.stretchTo; ++j) {
        // Spread the dropped or repeated frames evenly over the buffer.
        const std::size_t from = j * plan.read / plan.stretchTo;
        for (int c = 0; c < Channels; ++c) {
            const qint16 v = scratch[from * Channels + c];
            dst[j * Channels + c] = muted ? qint16(0) : OVAudioRing::applyGain(v, gain);
        }
    }
    const std::size_t filled = (plan.silence + plan.stretchTo) * Channels;
    std::memset(out + filled, 0, (total - filled) * sizeof(qint16));
    return taken;
}

std::size_t OVAudioOut::fillBuffer(OVAudioRing &ring, qint16 *out, unsigned long frames, double gain,
                                   bool muted)
{
    const std::size_t n = static_cast<std::size_t>(frames) * Channels;
    if (!ring.read(out, n)) {
        std::memset(out, 0, n * sizeof(qint16));
        return 0;
    }
    if (muted) {
        std::memset(out, 0, n * sizeof(qint16));
    } else {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = OVAudioRing::applyGain(out[i], gain);
    }
    return n;
}

void OVAudioOut::onPlayerInitFinished(int errorcode)
{
    if (errorcode != 0 || !m_player || !m_player->hasAudioStream())
        return;
    if (!open(m_player->audioSampleRate()))
        return;
    setGain(m_player->volume());
    start();
}

void OVAudioOut::onPlayerFinished()
{
    stop();
}

void OVAudioOut::onPlayerStopRequested()
{
    stop();
}

void OVAudioOut::onPlayerStateChanged()
{
    if (!m_stream || !m_player)
        return;
    if (m_player->isPaused())
        stop();
    else
        start();
}
