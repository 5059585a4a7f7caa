#include "media/ovplaybackengine.h"

#include <QThread>

#include <algorithm>

OVPlaybackEngine::OVPlaybackEngine(OVPlaybackClock::TimeSource now) : m_clock(std::move(now)) {}

void OVPlaybackEngine::begin(bool hasVideo, double startOffset, OVAudioRing *ring)
{
    m_hasVideo = hasVideo;
    m_startOffset = startOffset;
    m_queues.setAudioRing(ring);
    m_serial = m_queues.newSerial();
    m_soundSinceSeek = 0;
    m_clock.setDecoding(true);
}

void OVPlaybackEngine::end()
{
    m_clock.setDecoding(false);
    m_queues.newSerial();
}

bool OVPlaybackEngine::seek(double secsFromStart, bool autoStart)
{
    // A new serial at once: nothing queued or still decoded from before is shown or heard.
    const quint64 serial = m_queues.newSerial();
    return m_clock.requestSeek(secsFromStart, autoStart, serial);
}

void OVPlaybackEngine::setTimeFactor(double factor)
{
    if (!(factor > 0.0))
        return;
    // Emptied here, before the decoding thread takes the new factor: between its taking it and
    // emptying the queues itself, a refresh would judge pictures queued at the old rate by the
    // new clock and show one up to the queue's length ahead.
    m_queues.newSerial();
    m_clock.requestTimeFactor(factor);
}

bool OVPlaybackEngine::pause()
{
    return m_clock.pause();
}

bool OVPlaybackEngine::resume()
{
    return m_clock.resume();
}

void OVPlaybackEngine::setPlayRange(double start, double length, double duration)
{
    start = std::max(start, 0.0);
    length = std::max(length, 1.0);
    // A duration not known yet (0) limits nothing.
    if (duration > 0.0 && start + length >= duration)
        length = duration - start - 0.1;
    m_playRangeStart = start;
    m_playRangeLength = length;
}

OVPlaybackQueues::VideoFramePtr OVPlaybackEngine::takeDueFrame(double presentationOffset)
{
    const double factor = m_clock.timeFactor();
    return m_queues.takeDueFrame(m_clock.clockPosition() + presentationOffset * factor);
}

double OVPlaybackEngine::frameTime(double seconds) const
{
    return (seconds - m_startOffset) * m_clock.timeFactor();
}

bool OVPlaybackEngine::waitWhilePaused(const std::function<bool()> &stopping)
{
    while (m_clock.isPaused()) {
        if (stopping && stopping())
            return false;
        QThread::msleep(PausedStepMs);
    }
    return !(stopping && stopping());
}

void OVPlaybackEngine::throttle(const std::function<bool()> &stopping)
{
    const double factor = m_clock.timeFactor();
    m_queues.waitWhileAhead([this] { return m_clock.clockPosition(); }, factor, m_hasVideo,
                            m_hasVideo ? m_startOffset : 0.0,
                            [&] { return (stopping && stopping()) || m_clock.isSeekPending(); },
                            [this] { pumpAudio(); });
}

bool OVPlaybackEngine::beforeVideoFrame(const std::function<bool()> &stopping)
{
    if (!waitWhilePaused(stopping))
        return false;
    throttle(stopping);
    return !(stopping && stopping());
}

bool OVPlaybackEngine::keepVideoFrame(double t, double frameDuration)
{
    if (m_clock.isBeforeSeekTarget(t))
        return false;
    m_clock.frameKept(t, frameDuration, true);
    return true;
}

bool OVPlaybackEngine::queueVideoFrame(OVPlaybackQueues::VideoFrame frame)
{
    const double t = frame.time;
    const int n = m_queues.pushVideoFrame(std::move(frame), m_serial);
    pumpAudio();
    return n > 0 && m_clock.pauseAfterSeekIfDue(n, t);
}

bool OVPlaybackEngine::beforeAudioFrame(const std::function<bool()> &stopping)
{
    if (m_hasVideo)
        return m_queues.acceptsAudio(true) && !(stopping && stopping());
    if (!waitWhilePaused(stopping))
        return false;
    throttle(stopping);
    return !(stopping && stopping());
}

bool OVPlaybackEngine::keepAudioFrame(double t, double frameDuration)
{
    if (m_clock.isBeforeSeekTarget(t))
        return false;
    // Sound sets the origin only when there are no pictures to do it.
    if (!m_hasVideo)
        m_clock.frameKept(t, frameDuration, true);
    return true;
}

bool OVPlaybackEngine::queueAudioBuffer(OVPlaybackQueues::AudioBuffer buffer)
{
    const double t = buffer.time;
    const bool queued = m_queues.pushAudioBuffer(std::move(buffer), m_serial, m_hasVideo);
    pumpAudio();
    if (!queued || m_hasVideo)
        return false;
    return m_clock.pauseAfterSeekIfDue(++m_soundSinceSeek, t);
}

void OVPlaybackEngine::pumpAudio()
{
    m_queues.pumpAudio(volume(), m_clock.clockPosition());
}

bool OVPlaybackEngine::applyPendingSeek(const std::function<void(double)> &seekTo)
{
    OVPlaybackClock::SeekRequest request;
    if (!m_clock.takeSeekRequest(&request))
        return false;
    // A drag on the speed bar sends changes faster than a seek back to a keyframe can reach the
    // playing position: each would start the decoding over, and the picture would stand still
    // for as long as the drag lasts. The seek under way goes on, taking what comes at the new
    // rate into the queues emptied for it.
    if (request.inPlace) {
        m_serial = m_queues.serial();
        return false;
    }
    // A speed change comes without a serial of its own: the queues were filled at the old
    // rate and must go. So must they when the queues moved on since the request (a seek asked
    // for before a start, whose begin() made a newer serial): its serial would drop every frame.
    m_serial = (request.serial && request.serial == m_queues.serial()) ? request.serial
                                                                        : m_queues.newSerial();
    m_soundSinceSeek = 0;
    if (seekTo)
        seekTo(request.target);
    return true;
}
