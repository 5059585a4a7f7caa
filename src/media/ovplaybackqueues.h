#pragma once

#include <QByteArray>
#include <QImage>
#include <QtGlobal>

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

class OVAudioRing;

// The player's queues of converted video frames and audio buffers, under one lock.
//
// Every item carries the serial of the seek it was decoded after. A seek request makes a new
// serial at once (newSerial()): the queues are emptied, the sound already handed to the ring is
// flushed, and anything still pushed under an older serial is dropped, so nothing decoded
// before a seek is ever shown or heard after it.
//
// How the player uses it, on the decoding thread:
//   start:        m_serial = queues.newSerial();
//   seek taken:   m_serial = request.serial ? request.serial : queues.newSerial();
//   video hook:   queues.waitWhileAhead(...); convert; n = queues.pushVideoFrame(f, m_serial)
//   audio hook:   if (!queues.acceptsAudio(hasVideo)) drop; convert, stretch;
//                 queues.pushAudioBuffer(b, m_serial, hasVideo); queues.pumpAudio(...)
// and on the GUI thread the canvas calls takeDueFrame().
//
// The sound card's callback never takes this lock: it reads only the lock-free ring that
// pumpAudio() fills.
class OVPlaybackQueues
{
public:
    // Sound waits for this many pictures after a start or seek, so it never runs ahead of them.
    static constexpr int VideoFramesBeforeSound = 5;
    // The decoder may run this many times the time factor (clock seconds) ahead.
    static constexpr double LeadFactor = 2.0;
    static constexpr int ThrottleStepMs = 10;
    // Sound this far (clock seconds) behind the clock is dropped even if the device has not
    // played it.
    static constexpr double StaleAudioSeconds = 2.0;

    // One converted picture: 24-bit RGB rows padded to 4 bytes.
    struct VideoFrame
    {
        double time = 0.0;    // clock seconds (media seconds × time factor)
        int width = 0;
        int height = 0;
        int format = 13;      // QImage::Format_RGB888
        int stride = 0;
        double pixelAspect = 1.0;
        double rotation = 0.0;
        QByteArray pixels;
        // When not null, the picture itself (RGB888, same size and stride): the converter's
        // image is shared instead of copied into pixels.
        QImage image;
        quint64 serial = 0;   // set by pushVideoFrame()
        bool shown = false;
    };
    using VideoFramePtr = std::shared_ptr<const VideoFrame>;

    // One converted, stretched audio buffer of interleaved signed 16-bit samples.
    struct AudioBuffer
    {
        double time = 0.0;    // clock seconds
        int channels = 2;
        int sampleRate = 0;
        std::vector<qint16> samples;
        quint64 serial = 0;   // set by pushAudioBuffer()
    };

    OVPlaybackQueues();
    ~OVPlaybackQueues();
    OVPlaybackQueues(const OVPlaybackQueues &) = delete;
    OVPlaybackQueues &operator=(const OVPlaybackQueues &) = delete;

    // The ring that pumpAudio() feeds, or null when there is no sound output: buffers are then
    // retired when the clock passes them. Any thread. A ring that is newly set is flushed.
    void setAudioRing(OVAudioRing *ring);

    // -- Serials (any thread)
    quint64 serial() const;
    // Starts a new serial: empties both queues, flushes the ring, resets the frames-since-seek
    // count. Returns the new serial.
    quint64 newSerial();

    // -- Decoding thread
    // Queues a picture made under `serial`. Returns the number of pictures queued since the last
    // start or seek, this one included, or -1 when the picture is stale and was dropped.
    int pushVideoFrame(VideoFrame frame, quint64 serial);
    int framesSinceSeek() const;
    // Whether a sound buffer would be queued now: always without video; with video only once
    // VideoFramesBeforeSound pictures were queued since the last start or seek.
    bool acceptsAudio(bool hasVideo) const;
    // Queues a sound buffer made under `serial`; false when it was dropped (stale serial, or too
    // early after a seek).
    bool pushAudioBuffer(AudioBuffer buffer, quint64 serial, bool hasVideo);
    // Moves queued samples into the ring as far as it has room, applying the entry gain and
    // stamping each stretch with its clock time (the callback keeps the sound on the clock by
    // the stamps), and retires the buffers the callback has played or skipped (or that lie
    // StaleAudioSeconds behind the clock). Without a ring, retires the buffers whose time the
    // clock has passed. Call after each push and while waiting.
    void pumpAudio(double gain, double clockPosition);

    // True when the decoder should wait: both the lead (newest queued time − clockPosition +
    // extraLead) and the span (newest − oldest) of the measured queue exceed LeadFactor × factor.
    // The video queue is measured when there is video, else the audio queue.
    bool isAhead(double clockPosition, double timeFactor, bool hasVideo,
                 double extraLead = 0.0) const;
    // Sleeps in ThrottleStepMs steps while isAhead() and not interrupted() (a pending seek or
    // stop). eachStep runs before each sleep (the player pumps audio there). Returns the number
    // of steps slept.
    int waitWhileAhead(const std::function<double()> &clockPosition, double timeFactor,
                       bool hasVideo, double extraLead, const std::function<bool()> &interrupted,
                       const std::function<void()> &eachStep = {});

    // -- GUI thread
    // The newest queued picture due at dueClockTime (clock seconds), if it was not shown yet.
    // Older due pictures are discarded unseen; the returned one stays queued, marked as shown,
    // until a newer one is due.
    VideoFramePtr takeDueFrame(double dueClockTime);

    // -- Inspection (any thread)
    struct Span
    {
        bool empty = true;
        double oldest = 0.0;
        double newest = 0.0;
        double length() const { return empty ? 0.0 : newest - oldest; }
    };
    Span videoSpan() const;
    Span audioSpan() const;
    int videoFrameCount() const;
    int audioBufferCount() const;
    // Pictures queued and pictures handed out by takeDueFrame(), and the pictures that were
    // due but passed over for a newer one (never shown). Pictures emptied by a seek count in
    // none but the first.
    quint64 videoFramesQueued() const;
    quint64 videoFramesTaken() const;
    quint64 videoFramesSkipped() const;
    // Sound buffers accepted by pushAudioBuffer().
    quint64 audioBuffersQueued() const;

private:
    struct QueuedAudio
    {
        AudioBuffer buffer;
        std::size_t handedOver = 0; // samples already in the ring
        quint64 ringEnd = 0;        // ring write counter after its last sample
    };

    Span videoSpanLocked() const;
    Span audioSpanLocked() const;

    mutable std::mutex m_mutex;
    // -- All the following fields are protected by m_mutex.
    quint64 m_serial = 0;
    int m_framesSinceSeek = 0;
    std::deque<std::shared_ptr<VideoFrame>> m_video;
    std::deque<QueuedAudio> m_audio;
    OVAudioRing *m_ring = nullptr;
    quint64 m_queuedCount = 0;
    quint64 m_takenCount = 0;
    quint64 m_skippedCount = 0;
    quint64 m_audioQueuedCount = 0;
};
