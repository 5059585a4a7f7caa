#include "media/ovplaybackclock.h"

#include <QDateTime>

#include <chrono>
#include <cmath>
#include <limits>

OVPlaybackClock::OVPlaybackClock(TimeSource now)
    : m_now(std::move(now)), m_soundOrigin(std::numeric_limits<double>::quiet_NaN())
{
    if (!m_now)
        m_now = &OVPlaybackClock::systemNow;
}

double OVPlaybackClock::preciseSystemNow()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

void OVPlaybackClock::publishLocked()
{
    const bool running = m_decoding && m_hasOrigin && !m_paused && !m_seekPending;
    m_soundOrigin.store(running ? m_origin : std::numeric_limits<double>::quiet_NaN(),
                        std::memory_order_release);
}

double OVPlaybackClock::systemNow()
{
    const qint64 ms = QDateTime::currentMSecsSinceEpoch();
    return double(ms / 1000) + double(ms % 1000) / 1000.0;
}

double OVPlaybackClock::now() const
{
    return m_now();
}

double OVPlaybackClock::nowLocked() const
{
    return m_now();
}

double OVPlaybackClock::positionLocked() const
{
    if (!m_decoding)
        return 0.0;
    double p;
    if (m_paused)
        p = m_pausedPosition / m_timeFactor;
    else if (m_seekPending || !m_hasOrigin)
        p = m_reportedPosition;
    else
        p = (nowLocked() - m_origin) / m_timeFactor;
    // Never hand out garbage: a position off the scale reads as the start.
    if (!(p >= 0.0 && p <= MaxPosition))
        return 0.0;
    return p;
}

double OVPlaybackClock::position() const
{
    std::lock_guard lock(m_mutex);
    return positionLocked();
}

double OVPlaybackClock::clockPosition() const
{
    std::lock_guard lock(m_mutex);
    return positionLocked() * m_timeFactor;
}

bool OVPlaybackClock::requestSeek(double secsFromStart, bool autoStart, quint64 serial)
{
    std::lock_guard lock(m_mutex);
    m_seekTarget = secsFromStart;
    m_seekSerial = serial;
    m_seekPending = true;
    m_continuePosition = false;
    m_reportedPosition = secsFromStart;
    m_origin = 0.0;
    m_hasOrigin = false;
    m_pauseAfterSeek = !autoStart;
    // The decoder sleeps while paused, so the seek has to run; without autoStart it pauses
    // again on the target picture.
    const bool wasPaused = m_paused;
    m_paused = false;
    publishLocked();
    return wasPaused;
}

bool OVPlaybackClock::pause()
{
    std::lock_guard lock(m_mutex);
    if (m_paused)
        return false;
    m_pausedPosition = positionLocked() * m_timeFactor;
    m_paused = true;
    publishLocked();
    return true;
}

bool OVPlaybackClock::resume()
{
    std::lock_guard lock(m_mutex);
    if (!m_paused)
        return false;
    m_paused = false;
    m_pauseAfterSeek = false;
    // Run on from where the picture stopped. Before the first frame after a seek there is no
    // origin yet; the next kept frame sets it.
    if (m_hasOrigin && !m_seekPending)
        m_origin = nowLocked() - m_pausedPosition;
    publishLocked();
    return true;
}

void OVPlaybackClock::requestTimeFactor(double factor)
{
    if (!(factor > 0.0))
        return;
    std::lock_guard lock(m_mutex);
    m_pendingFactor = factor;
    m_factorPending = true;
}

void OVPlaybackClock::setDecoding(bool decoding)
{
    std::lock_guard lock(m_mutex);
    if (!decoding && m_decoding && m_factorPending && !m_seekPending) {
        // A speed change that came after the last packet was read ends the run before its last
        // pictures are shown. Only the next run can carry the change out, and it must begin
        // where playback stands now: measured here, while the clock still runs, since a clock
        // that is not decoding reads 0.
        const double here = positionLocked();
        m_seekTarget = here;
        m_reportedPosition = here;
        m_seekSerial = 0;
        m_seekPending = true;
        m_continuePosition = m_continuePosition || m_hasOrigin;
        m_pauseAfterSeek = m_paused;
        m_paused = false;
    }
    m_decoding = decoding;
    if (decoding) {
        m_origin = 0.0;
        m_hasOrigin = false;
        if (!m_seekPending) {
            m_reportedPosition = 0.0;
            m_continuePosition = false;
        }
    }
    publishLocked();
}

bool OVPlaybackClock::takeSeekRequest(SeekRequest *request)
{
    std::lock_guard lock(m_mutex);
    SeekRequest r;
    if (m_factorPending) {
        // Measured with the old factor: this is where the user is now.
        const double here = positionLocked();
        m_timeFactor = m_pendingFactor;
        m_factorPending = false;
        r.factorChanged = true;
        r.inPlace = !m_seekPending && !m_hasOrigin && m_continuePosition;
        r.target = here;
        r.serial = m_seekPending ? m_seekSerial : 0;
        // Without a seek of the user's, the position is where playback stands, not a target:
        // see frameKept(). Before the first frame of a run nothing stands yet, and the run
        // begins by the seek's rule.
        if (!m_seekPending && m_hasOrigin)
            m_continuePosition = true;
        m_seekTarget = here;
        m_reportedPosition = here;
    } else if (m_seekPending) {
        r.target = m_seekTarget;
        r.serial = m_seekSerial;
    } else {
        return false;
    }
    m_seekPending = false;
    m_origin = 0.0;
    m_hasOrigin = false;
    if (request)
        *request = r;
    publishLocked();
    return true;
}

bool OVPlaybackClock::isBeforeSeekTarget(double t) const
{
    std::lock_guard lock(m_mutex);
    return m_seekTarget >= 0.0 && m_seekTarget * m_timeFactor > t;
}

void OVPlaybackClock::frameKept(double t, double frameDuration, bool setsOrigin)
{
    std::lock_guard lock(m_mutex);
    // A newer seek already waits: this frame belongs to the old one and must not touch it.
    if (m_seekPending)
        return;
    m_seekTarget = -1.0;
    if (setsOrigin && !m_hasOrigin) {
        if (m_continuePosition) {
            // A speed change goes on from where it was made. The seek's rule would put the
            // position up to a frame before the kept one, and a run of changes (a drag on the
            // speed bar) would add those frames up into a jump back.
            m_origin = nowLocked() - m_reportedPosition * m_timeFactor;
            m_continuePosition = false;
        } else {
            m_origin = frameDuration * m_timeFactor + nowLocked() - t;
        }
        m_hasOrigin = true;
    }
    publishLocked();
}

bool OVPlaybackClock::pauseAfterSeekIfDue(int framesSinceSeek, double t)
{
    std::lock_guard lock(m_mutex);
    if (!m_pauseAfterSeek || m_seekPending || framesSinceSeek != 2)
        return false;
    pauseAfterSeekLocked(t);
    return true;
}

bool OVPlaybackClock::pauseAfterSeekAtEnd(double t)
{
    std::lock_guard lock(m_mutex);
    if (!m_pauseAfterSeek || m_seekPending || !m_hasOrigin)
        return false;
    pauseAfterSeekLocked(t);
    return true;
}

void OVPlaybackClock::pauseAfterSeekLocked(double t)
{
    m_pauseAfterSeek = false;
    m_paused = true;
    m_pausedPosition = t;
    publishLocked();
}

double OVPlaybackClock::timeFactor() const
{
    std::lock_guard lock(m_mutex);
    return m_timeFactor;
}

bool OVPlaybackClock::isPaused() const
{
    std::lock_guard lock(m_mutex);
    return m_paused;
}

bool OVPlaybackClock::isSeekPending() const
{
    std::lock_guard lock(m_mutex);
    return m_seekPending || m_factorPending;
}

bool OVPlaybackClock::hasOrigin() const
{
    std::lock_guard lock(m_mutex);
    return m_hasOrigin;
}

double OVPlaybackClock::origin() const
{
    std::lock_guard lock(m_mutex);
    return m_hasOrigin ? m_origin : 0.0;
}

double OVPlaybackClock::seekTarget() const
{
    std::lock_guard lock(m_mutex);
    return m_seekTarget;
}

bool OVPlaybackClock::isDecoding() const
{
    std::lock_guard lock(m_mutex);
    return m_decoding;
}
