#pragma once

#include <QtGlobal>

#include <atomic>
#include <functional>
#include <mutex>

// The player's clock: the one source of the current position.
//
// It runs on wall time, not on the sound card, so a missing or stalled device never stops the
// picture. Frame times t are in clock seconds, that is media seconds × time factor (the factor
// is the reciprocal of the playback speed); positions are in media seconds.
//
// The GUI thread requests seeks, pauses, resumes and factor changes and reads the position; the
// decoding thread takes the requests at frame boundaries and reports kept frames. Every member
// is guarded by one private mutex held only for a few arithmetic steps.
class OVPlaybackClock
{
public:
    // Seconds of wall time; the default is the system date-time with millisecond resolution.
    using TimeSource = std::function<double()>;

    static constexpr double MaxPosition = 60000.0;

    explicit OVPlaybackClock(TimeSource now = {});

    static double systemNow();
    double now() const;

    // The current position in media seconds: 0 while not decoding; the paused position while
    // paused; the requested position while a seek is pending or before the first frame after a
    // start or seek; else (now − origin) / factor. Anything outside 0…60,000 s reads as 0.
    double position() const;
    // The same in clock seconds (position × factor): frames with t at or below it are due.
    double clockPosition() const;

    // -- GUI thread
    // A seek: stores the target, reports it as the position until the first frame after it,
    // clears the origin; autoStart false pauses at the second frame after the seek. The serial
    // identifies the seek for the queues (see OVPlaybackQueues). A paused clock runs again
    // (the decoder sleeps while paused, so the seek could not happen); returns true when it was
    // paused.
    bool requestSeek(double secsFromStart, bool autoStart, quint64 serial);
    // Freezes the position where it is. False when already paused.
    bool pause();
    // Lets the clock run on from the paused position. False when not paused.
    bool resume();
    // Stored until the decoding thread applies it at its next frame.
    void requestTimeFactor(double factor);

    // -- Decoding thread
    // The decoder is (not) running its read loop; a start begins like a seek to 0 without one.
    void setDecoding(bool decoding);
    struct SeekRequest
    {
        double target = -1.0;  // media seconds
        quint64 serial = 0;
        bool factorChanged = false;
        // The change came while the seek of an earlier one had kept nothing yet: that seek,
        // to the same place, carries on at the new factor, and no new one is needed.
        bool inPlace = false;
    };
    // Takes a pending factor change (which becomes a seek to the current position, so the queues
    // refill at the new rate) or a pending seek. A factor change without a seek of the GUI has
    // serial 0: the caller makes a new serial for it. The target stays the drop threshold until a
    // frame at or past it is kept. False when there is nothing to do.
    bool takeSeekRequest(SeekRequest *request);
    // True when a frame at clock time t lies before the seek target (target × factor > t).
    bool isBeforeSeekTarget(double t) const;
    // A frame at clock time t lasting frameDuration media seconds is kept: clears the target
    // and, for the first frame after a start or seek (when setsOrigin), sets the origin so that
    // its due time is origin + t: origin = frameDuration × factor + now − t. After a speed
    // change the origin instead continues the position from where the change was made.
    void frameKept(double t, double frameDuration, bool setsOrigin);
    // Called after the framesSinceSeek-th frame at t was queued: when a seek asked to stay
    // paused and this is its second frame, pauses at t and returns true (the player then
    // announces its state).
    bool pauseAfterSeekIfDue(int framesSinceSeek, double t);
    // The file ended before that second frame came: pauses at t, the last one kept, and
    // returns true, when a seek that is to stay paused has kept a frame and still waits.
    bool pauseAfterSeekAtEnd(double t);

    // -- Either thread
    double timeFactor() const;
    bool isPaused() const;
    // A seek or a factor change waits for the decoding thread.
    bool isSeekPending() const;
    bool hasOrigin() const;
    double origin() const;
    double seekTarget() const;
    bool isDecoding() const;

    // -- Sound card callback (never locks)
    // The origin while the clock runs (not paused, no seek waiting, a frame has set it); NaN
    // otherwise. A sample due at clock time t is to be heard at soundOrigin() + t. The callback
    // reads the system time against it: the clock must run on the default time source.
    double soundOrigin() const { return m_soundOrigin.load(std::memory_order_acquire); }
    // The system time as the callback reads it: the clock's time base, finer than milliseconds.
    static double preciseSystemNow();

private:
    // Updates soundOrigin() after a change of the fields it depends on.
    void publishLocked();
    // Ends a seek that is to stay paused, paused at `t`.
    void pauseAfterSeekLocked(double t);

    double positionLocked() const;
    double nowLocked() const;

    TimeSource m_now;
    std::atomic<double> m_soundOrigin;
    static_assert(std::atomic<double>::is_always_lock_free);
    mutable std::mutex m_mutex;
    // -- All the following fields are protected by m_mutex.
    double m_timeFactor = 1.0;
    double m_pendingFactor = 1.0;
    bool m_factorPending = false;
    double m_seekTarget = -1.0;
    quint64 m_seekSerial = 0;
    bool m_seekPending = false;
    // The seek under way carries out a speed change: the first frame keeps the position.
    bool m_continuePosition = false;
    double m_reportedPosition = 0.0;
    double m_origin = 0.0;
    bool m_hasOrigin = false;
    bool m_paused = false;
    double m_pausedPosition = 0.0; // clock seconds (media position × factor)
    bool m_pauseAfterSeek = false;
    bool m_decoding = false;
};
