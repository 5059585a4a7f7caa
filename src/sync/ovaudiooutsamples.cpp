#include "sync/ovaudiooutsamples.h"

#include "media/ovaudioout.h"
#include "media/ovaudioring.h"
#include "sync/ovsamples.h"
#include "sync/ovsynclogging.h"

#include <QDebug>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int Channels = OVAudioOut::Channels;

qint64 framesOf(double seconds, int rate)
{
    return qint64(std::floor(seconds * rate));
}

} // namespace

OVAudioOutSamples::OVAudioOutSamples(QObject *parent) : QObject(parent), m_timer(new QTimer(this))
{
    m_timer->setTimerType(Qt::PreciseTimer);
    m_timer->setInterval(FeedIntervalMs);
    connect(m_timer, &QTimer::timeout, this, &OVAudioOutSamples::feed);
}

OVAudioOutSamples::~OVAudioOutSamples()
{
    stop();
}

int OVAudioOutSamples::sampleRate() const
{
    for (const OVSamples *t : m_tracks) {
        if (t && t->sampleRate > 0)
            return t->sampleRate;
    }
    return 0;
}

void OVAudioOutSamples::setTracks(const OVSamples *first, const OVSamples *second)
{
    const bool playing = m_playing;
    stop();
    m_tracks[0] = first;
    m_tracks[1] = second;
    m_phase = 0;
    if (playing)
        start();
}

void OVAudioOutSamples::setLoop(double firstStart, double secondStart, double duration)
{
    m_start[0] = firstStart;
    m_start[1] = secondStart;
    m_duration = std::max(duration, 0.01);
    restartQueue();
}

void OVAudioOutSamples::setVolumes(double first, double second)
{
    m_gain[0] = std::max(0.0, first);
    m_gain[1] = std::max(0.0, second);
    restartQueue();
}

void OVAudioOutSamples::restartQueue()
{
    if (!m_playing)
        return;
    // What is queued was mixed with the old settings: drop it and go on from the point of the
    // loop that was about to be heard.
    const int rate = sampleRate();
    const qint64 loopFrames = std::max<qint64>(1, framesOf(m_duration, rate));
    const qint64 queued = qint64(m_out->ring()->readAvailable() / Channels);
    m_phase = ((m_phase - queued) % loopFrames + loopFrames) % loopFrames;
    m_out->ring()->requestFlush();
    feed();
}

bool OVAudioOutSamples::start()
{
    stop();
    const int rate = sampleRate();
    if (rate <= 0)
        return false;
    if (!m_out)
        m_out = std::make_unique<OVAudioOut>();
    m_out->ring()->requestFlush();
    if (!m_out->open(rate, OutputLatencySeconds))
        return false;
    m_buffer.assign(size_t(std::ceil(LeadSeconds * rate)) * Channels, 0);
    m_playing = true;
    feed();
    m_out->start();
    m_timer->start();
    return true;
}

void OVAudioOutSamples::stop()
{
    m_timer->stop();
    const bool wasPlaying = std::exchange(m_playing, false);
    if (!m_out)
        return;
    m_out->close();
    // The sound system reports a late buffer on its own line without saying whose: this names it.
    if (wasPlaying && m_out->underflows() > 0)
        qCWarning(lcSync) << "OVAudioOutSamples:" << m_out->underflows() << "buffer(s) reached the sound card late while looping";
}

double OVAudioOutSamples::loopPosition() const
{
    const int rate = sampleRate();
    if (!m_playing || rate <= 0)
        return 0.0;
    const qint64 loopFrames = std::max<qint64>(1, framesOf(m_duration, rate));
    const qint64 queued = qint64(m_out->ring()->readAvailable() / Channels);
    return double(((m_phase - queued) % loopFrames + loopFrames) % loopFrames) / rate;
}

void OVAudioOutSamples::feed()
{
    if (!m_playing)
        return;
    const int rate = sampleRate();
    OVAudioRing *ring = m_out->ring();
    const qint64 lead = framesOf(LeadSeconds, rate);
    const qint64 queued = qint64(ring->readAvailable() / Channels);
    const qint64 room = qint64(ring->writeAvailable() / Channels);
    const qint64 frames = std::min({ lead - queued, room, qint64(m_buffer.size() / Channels) });
    if (frames <= 0)
        return;
    const qint64 loopFrames = std::max<qint64>(1, framesOf(m_duration, rate));
    m_phase = mix(m_tracks[0], framesOf(m_start[0], rate), m_gain[0], m_tracks[1], framesOf(m_start[1], rate),
                  m_gain[1], loopFrames, m_phase, m_buffer.data(), frames);
    ring->write(m_buffer.data(), size_t(frames * Channels));
}

qint64 OVAudioOutSamples::mix(const OVSamples *first, qint64 firstStart, double firstGain, const OVSamples *second,
                              qint64 secondStart, double secondGain, qint64 loopFrames, qint64 phase, qint16 *out,
                              qint64 frames)
{
    loopFrames = std::max<qint64>(loopFrames, 1);
    phase = ((phase % loopFrames) + loopFrames) % loopFrames;
    const auto at = [](const OVSamples *t, qint64 pos) -> int {
        return t && pos >= 0 && pos < t->count ? t->data[size_t(pos)] : 0;
    };
    for (qint64 f = 0; f < frames; ++f) {
        const double v = at(first, firstStart + phase) * firstGain + at(second, secondStart + phase) * secondGain;
        const qint16 s = qint16(std::clamp(std::lround(v), -32767l, 32767l));
        for (int c = 0; c < Channels; ++c)
            out[f * Channels + c] = s;
        if (++phase == loopFrames)
            phase = 0;
    }
    return phase;
}
