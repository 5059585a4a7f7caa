#pragma once

#include "media/ovplaybackclock.h"
#include "media/ovplaybackqueues.h"

#include <atomic>
#include <functional>

class OVAudioRing;

// The player's timing and queueing, free of FFmpeg: the clock, the two queues and the order of
// the steps in the decoder's frame hooks. The player calls one or two methods per hook and
// does the conversions itself:
//
//   processVideoFrame(f):
//     if (!engine.beforeVideoFrame(stopping)) return;          // paused wait, throttle
//     t = engine.frameTime(pts × timeBase);
//     if (!engine.keepVideoFrame(t, duration × timeBase)) return; // before the seek target
//     frame = convert(f); frame.time = t;
//     paused = engine.queueVideoFrame(std::move(frame));
//     engine.applyPendingSeek(seekTo);                         // av_seek_frame, flush codecs
//     if (paused) emit stateChanged();
//
//   processAudioFrame(f, stream):
//     if (!engine.beforeAudioFrame(stopping)) return;          // 5 pictures first / paused, throttle
//     t = engine.frameTime(pts × timeBase);
//     if (!engine.keepAudioFrame(t, duration)) return;
//     buffer = convert and stretch(f, engine.timeFactor()); buffer.time = t;
//     paused = engine.queueAudioBuffer(std::move(buffer));
//     if (!hasVideo) engine.applyPendingSeek(seekTo);
//     if (paused) emit stateChanged();
//
// begin() at the start of the read loop, end() after it. The GUI thread calls seek(), pause(),
// resume(), setTimeFactor(), setVolume(), position() and takeDueFrame().
class OVPlaybackEngine
{
public:
    static constexpr int PausedStepMs = 50;

    explicit OVPlaybackEngine(OVPlaybackClock::TimeSource now = {});

    OVPlaybackClock &clock() { return m_clock; }
    const OVPlaybackClock &clock() const { return m_clock; }
    OVPlaybackQueues &queues() { return m_queues; }

    // -- Decoding thread, around the read loop
    // The source's layout; ring is the sound output's ring, or null when there is none.
    void begin(bool hasVideo, double startOffset, OVAudioRing *ring);
    void end();
    bool hasVideo() const { return m_hasVideo; }
    double startOffset() const { return m_startOffset; }

    // -- GUI thread
    // Returns true when the paused state changed (a paused player runs to carry out the seek).
    bool seek(double secsFromStart, bool autoStart = true);
    bool pause();
    bool resume();
    bool isPaused() const { return m_clock.isPaused(); }
    // A speed change is a seek to where playback is: what was decoded at the old rate goes at once.
    void setTimeFactor(double factor);
    double timeFactor() const { return m_clock.timeFactor(); }
    // The gain applied as sound enters the ring.
    void setVolume(double volume) { m_volume.store(volume, std::memory_order_relaxed); }
    double volume() const { return m_volume.load(std::memory_order_relaxed); }
    double position() const { return m_clock.position(); }
    // The part of the media to play (GUI thread). The start is at least 0 and the length at
    // least 1 s; a range reaching the duration ends 0.1 s before it.
    void setPlayRange(double start, double length, double duration);
    double playRangeStart() const { return m_playRangeStart; }
    double playRangeLength() const { return m_playRangeLength; }

    // The newest picture due at the position plus presentationOffset (media seconds), once.
    OVPlaybackQueues::VideoFramePtr takeDueFrame(double presentationOffset = 0.0);

    // -- Decoding thread, in the hooks
    // (seconds − start offset) × time factor: a frame's time on the clock.
    double frameTime(double seconds) const;
    // Sleeps while paused (50 ms steps), then while ahead (10 ms steps, sound is pumped
    // meanwhile). False when stopping() became true.
    bool beforeVideoFrame(const std::function<bool()> &stopping);
    // False when the frame lies before the seek target; else it is kept (and the first one
    // after a start or seek sets the clock's origin).
    bool keepVideoFrame(double t, double frameDuration);
    // Queues a converted picture; true when this picture ended a seek that asked to stay
    // paused (the player then announces its state).
    bool queueVideoFrame(OVPlaybackQueues::VideoFrame frame);

    // With video: false until 5 pictures were queued since the start or seek. Without: waits
    // like beforeVideoFrame(). False when the frame is to be dropped or stopping.
    bool beforeAudioFrame(const std::function<bool()> &stopping);
    bool keepAudioFrame(double t, double frameDuration);
    bool queueAudioBuffer(OVPlaybackQueues::AudioBuffer buffer);
    // Moves queued sound into the ring (the hooks do it; the player may call it when idle).
    void pumpAudio();

    // Carries out a pending seek or speed change: adopts its serial and calls seekTo(target in
    // media seconds) to reposition the demuxer and flush the codecs. True when it did; a speed
    // change that joins the seek of an earlier one, still under way, needs none.
    bool applyPendingSeek(const std::function<void(double target)> &seekTo);

private:
    bool waitWhilePaused(const std::function<bool()> &stopping);
    void throttle(const std::function<bool()> &stopping);

    OVPlaybackClock m_clock;
    OVPlaybackQueues m_queues;
    std::atomic<double> m_volume{1.0};
    // -- GUI thread only.
    double m_playRangeStart = 0.0;
    double m_playRangeLength = 0.0;
    // -- Decoding thread only (set by begin()).
    bool m_hasVideo = false;
    double m_startOffset = 0.0;
    quint64 m_serial = 0;
    int m_soundSinceSeek = 0; // kept sound frames, for sources without video
};
