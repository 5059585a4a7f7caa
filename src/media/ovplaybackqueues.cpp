#include "media/ovplaybackqueues.h"

#include "media/ovaudioring.h"

#include <QThread>

OVPlaybackQueues::OVPlaybackQueues() = default;
OVPlaybackQueues::~OVPlaybackQueues() = default;

void OVPlaybackQueues::setAudioRing(OVAudioRing *ring)
{
    std::lock_guard lock(m_mutex);
    // Whatever a ring still holds from an earlier use is not due now. pumpAudio() writes
    // under this lock, so the flush cannot cut into a write.
    if (ring && ring != m_ring)
        ring->requestFlush();
    m_ring = ring;
}

quint64 OVPlaybackQueues::serial() const
{
    std::lock_guard lock(m_mutex);
    return m_serial;
}

quint64 OVPlaybackQueues::newSerial()
{
    // Free the old items outside the lock: the canvas and the decoder should not wait on it.
    std::deque<std::shared_ptr<VideoFrame>> oldVideo;
    std::deque<QueuedAudio> oldAudio;
    quint64 serial;
    {
        std::lock_guard lock(m_mutex);
        serial = ++m_serial;
        m_framesSinceSeek = 0;
        oldVideo.swap(m_video);
        oldAudio.swap(m_audio);
        // pumpAudio() writes under this lock, so everything in the ring now is older.
        if (m_ring)
            m_ring->requestFlush();
    }
    return serial;
}

int OVPlaybackQueues::pushVideoFrame(VideoFrame frame, quint64 serial)
{
    auto item = std::make_shared<VideoFrame>(std::move(frame));
    item->serial = serial;
    item->shown = false;
    std::lock_guard lock(m_mutex);
    if (serial != m_serial)
        return -1;
    m_video.push_back(std::move(item));
    ++m_queuedCount;
    return ++m_framesSinceSeek;
}

int OVPlaybackQueues::framesSinceSeek() const
{
    std::lock_guard lock(m_mutex);
    return m_framesSinceSeek;
}

bool OVPlaybackQueues::acceptsAudio(bool hasVideo) const
{
    std::lock_guard lock(m_mutex);
    return !hasVideo || m_framesSinceSeek >= VideoFramesBeforeSound;
}

bool OVPlaybackQueues::pushAudioBuffer(AudioBuffer buffer, quint64 serial, bool hasVideo)
{
    buffer.serial = serial;
    std::lock_guard lock(m_mutex);
    if (serial != m_serial)
        return false;
    if (hasVideo && m_framesSinceSeek < VideoFramesBeforeSound)
        return false;
    m_audio.push_back(QueuedAudio{std::move(buffer), 0, 0});
    ++m_audioQueuedCount;
    return true;
}

void OVPlaybackQueues::pumpAudio(double gain, double clockPosition)
{
    std::deque<QueuedAudio> retired;
    {
        std::lock_guard lock(m_mutex);
        if (!m_ring) {
            // No sound card: the clock alone says what has been "played".
            while (!m_audio.empty() && m_audio.front().buffer.time <= clockPosition) {
                retired.push_back(std::move(m_audio.front()));
                m_audio.pop_front();
            }
        } else {
            const quint64 played = m_ring->readCount();
            while (!m_audio.empty()) {
                const QueuedAudio &front = m_audio.front();
                // Played, or skipped by the callback as past its time.
                const bool inRingAndPlayed = front.handedOver == front.buffer.samples.size()
                                             && front.ringEnd <= played;
                // A device that never starts (or stalls) must not make the queue grow forever.
                const bool longPast = front.buffer.time < clockPosition - StaleAudioSeconds;
                if (!inRingAndPlayed && !longPast)
                    break;
                retired.push_back(std::move(m_audio.front()));
                m_audio.pop_front();
            }
            for (QueuedAudio &q : m_audio) {
                const std::size_t size = q.buffer.samples.size();
                if (q.handedOver == size)
                    continue;
                if (m_ring->writeAvailable() == 0)
                    break;
                // The callback keeps each sample on the clock by these stamps.
                if (q.buffer.sampleRate > 0 && q.buffer.channels > 0)
                    m_ring->stamp(q.buffer.time
                                  + double(q.handedOver / q.buffer.channels) / q.buffer.sampleRate);
                q.handedOver += m_ring->write(q.buffer.samples.data() + q.handedOver,
                                              size - q.handedOver, gain);
                q.ringEnd = m_ring->written();
                if (q.handedOver < size)
                    break; // the ring is full
            }
        }
    }
}

OVPlaybackQueues::Span OVPlaybackQueues::videoSpanLocked() const
{
    Span s;
    if (!m_video.empty()) {
        s.empty = false;
        s.oldest = m_video.front()->time;
        s.newest = m_video.back()->time;
    }
    return s;
}

OVPlaybackQueues::Span OVPlaybackQueues::audioSpanLocked() const
{
    Span s;
    if (!m_audio.empty()) {
        s.empty = false;
        s.oldest = m_audio.front().buffer.time;
        s.newest = m_audio.back().buffer.time;
    }
    return s;
}

OVPlaybackQueues::Span OVPlaybackQueues::videoSpan() const
{
    std::lock_guard lock(m_mutex);
    return videoSpanLocked();
}

OVPlaybackQueues::Span OVPlaybackQueues::audioSpan() const
{
    std::lock_guard lock(m_mutex);
    return audioSpanLocked();
}

bool OVPlaybackQueues::isAhead(double clockPosition, double timeFactor, bool hasVideo,
                               double extraLead) const
{
    std::lock_guard lock(m_mutex);
    const Span s = hasVideo ? videoSpanLocked() : audioSpanLocked();
    if (s.empty)
        return false;
    const double limit = LeadFactor * timeFactor;
    const double lead = s.newest - clockPosition + extraLead;
    return lead > limit && s.length() > limit;
}

int OVPlaybackQueues::waitWhileAhead(const std::function<double()> &clockPosition,
                                     double timeFactor, bool hasVideo, double extraLead,
                                     const std::function<bool()> &interrupted,
                                     const std::function<void()> &eachStep)
{
    int steps = 0;
    while (!(interrupted && interrupted())
           && isAhead(clockPosition(), timeFactor, hasVideo, extraLead)) {
        if (eachStep)
            eachStep();
        QThread::msleep(ThrottleStepMs);
        ++steps;
    }
    return steps;
}

OVPlaybackQueues::VideoFramePtr OVPlaybackQueues::takeDueFrame(double dueClockTime)
{
    std::deque<std::shared_ptr<VideoFrame>> discarded;
    VideoFramePtr result;
    {
        std::lock_guard lock(m_mutex);
        // Stale pictures cannot be here (newSerial() empties the queue), but never show one.
        while (!m_video.empty() && m_video.front()->serial != m_serial) {
            discarded.push_back(std::move(m_video.front()));
            m_video.pop_front();
        }
        std::size_t due = 0;
        while (due < m_video.size() && m_video[due]->time <= dueClockTime)
            ++due;
        if (due == 0)
            return nullptr;
        for (std::size_t i = 0; i + 1 < due; ++i) {
            if (!m_video.front()->shown)
                ++m_skippedCount;
            discarded.push_back(std::move(m_video.front()));
            m_video.pop_front();
        }
        const std::shared_ptr<VideoFrame> &newest = m_video.front();
        if (!newest->shown) {
            newest->shown = true;
            ++m_takenCount;
            result = newest;
        }
    }
    return result;
}

int OVPlaybackQueues::videoFrameCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_video.size());
}

int OVPlaybackQueues::audioBufferCount() const
{
    std::lock_guard lock(m_mutex);
    return int(m_audio.size());
}

quint64 OVPlaybackQueues::videoFramesQueued() const
{
    std::lock_guard lock(m_mutex);
    return m_queuedCount;
}

quint64 OVPlaybackQueues::videoFramesTaken() const
{
    std::lock_guard lock(m_mutex);
    return m_takenCount;
}

quint64 OVPlaybackQueues::videoFramesSkipped() const
{
    std::lock_guard lock(m_mutex);
    return m_skippedCount;
}

quint64 OVPlaybackQueues::audioBuffersQueued() const
{
    std::lock_guard lock(m_mutex);
    return m_audioQueuedCount;
}
