#pragma once

#include <QtGlobal>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

// A preallocated single-producer/single-consumer ring of signed 16-bit samples.
//
// The producer may stamp where a stretch of sound lies on the playback clock (stamp()); the
// consumer then knows when the sample at its read position is due (timeAtRead()) and can keep
// the sound on the clock by skipping or waiting. Stamps travel in a second preallocated ring.
//
// The producer (the decoding thread) calls write() and requestFlush(); the consumer (the sound
// card's callback) calls read()/readAvailable()/applyFlush(). Neither side ever locks, waits or
// allocates: the two 64-bit counters only grow, each is written by one side only, and the slot
// of a counter is the counter modulo the capacity (a power of two).
//
// reset() and the constructor allocate; call them only while no callback can run.
class OVAudioRing
{
public:
    explicit OVAudioRing(std::size_t minCapacity = 0);

    // Drops everything and makes room for at least minCapacity samples (rounded up to a power
    // of two). Not thread-safe: the stream must be stopped.
    void reset(std::size_t minCapacity);

    std::size_t capacity() const { return m_capacity; }

    // -- Producer side
    // Room for this many samples now (may grow while the consumer reads).
    std::size_t writeAvailable() const;
    // Copies up to count samples, each multiplied by gain with clipping (see applyGain), and
    // returns how many were taken.
    std::size_t write(const qint16 *samples, std::size_t count, double gain = 1.0);
    // Everything written so far is to be skipped by the consumer at its next read. Used when a
    // seek makes the queued sound obsolete; safe from the producer thread, or from another
    // thread while the producer is held off by the caller's lock.
    void requestFlush();
    // The next sample written is due at `time` (clock seconds); the ones after it follow at the
    // sample rate. A stamp that finds the stamp ring full is dropped: the sound is taken to run
    // on without a gap.
    void stamp(double time);

    // -- Consumer side
    // Skips what requestFlush() marked obsolete. Called at the start of each callback.
    void applyFlush();
    std::size_t readAvailable() const;
    // Copies exactly count samples out if that many are buffered; otherwise copies nothing and
    // returns false.
    bool read(qint16 *out, std::size_t count);
    // Copies up to count samples out; returns how many.
    std::size_t readSome(qint16 *out, std::size_t count);
    // Drops up to count samples unheard; returns how many.
    std::size_t skip(std::size_t count);
    // When the sample at the read position is due (clock seconds), from the last stamp at or
    // before it, for interleaved frames of `channels` at `rate`. False when nothing stamped is
    // buffered.
    bool timeAtRead(int channels, int rate, double *time);

    // -- Either side (monotonic counters)
    quint64 written() const { return m_written.load(std::memory_order_acquire); }
    quint64 readCount() const { return m_read.load(std::memory_order_acquire); }

    // The gain rule shared by both ends of the ring: the limit is 32767 for gains up to 1.0 and
    // 32767 / gain above; samples beyond ±limit become ±32767 (never -32768), others
    // trunc(sample × gain).
    static qint16 applyGain(int sample, double gain)
    {
        const double limit = gain <= 1.0 ? 32767.0 : 32767.0 / gain;
        if (sample > limit)
            return 32767;
        if (sample < -limit)
            return -32767;
        return static_cast<qint16>(static_cast<int>(sample * gain));
    }

    static constexpr std::size_t StampCapacity = 4096;

private:
    struct Stamp
    {
        quint64 index = 0;
        double time = 0.0;
    };

    std::unique_ptr<qint16[]> m_data;
    std::size_t m_capacity = 0;
    std::size_t m_mask = 0;
    // Written only by the producer.
    alignas(64) std::atomic<quint64> m_written{0};
    // Written only by the consumer.
    alignas(64) std::atomic<quint64> m_read{0};
    // Written by the producer side, consumed by the consumer: read up to here before reading.
    alignas(64) std::atomic<quint64> m_flushTo{0};

    std::unique_ptr<Stamp[]> m_stamps;
    // Written only by the producer.
    alignas(64) std::atomic<quint64> m_stampsWritten{0};
    // Written only by the consumer.
    alignas(64) std::atomic<quint64> m_stampsRead{0};
    // -- Consumer only: the newest stamp at or before the read position.
    Stamp m_current;
    bool m_hasCurrent = false;
};
