#include "media/ovaudioring.h"

#include <algorithm>

OVAudioRing::OVAudioRing(std::size_t minCapacity)
{
    reset(minCapacity);
}

void OVAudioRing::reset(std::size_t minCapacity)
{
    std::size_t capacity = 1;
    while (capacity < minCapacity)
        capacity <<= 1;
    if (capacity != m_capacity || !m_data) {
        m_data = std::make_unique<qint16[]>(capacity);
        m_capacity = capacity;
        m_mask = capacity - 1;
    }
    m_written.store(0, std::memory_order_release);
    m_read.store(0, std::memory_order_release);
    m_flushTo.store(0, std::memory_order_release);
    if (!m_stamps)
        m_stamps = std::make_unique<Stamp[]>(StampCapacity);
    m_stampsWritten.store(0, std::memory_order_release);
    m_stampsRead.store(0, std::memory_order_release);
    m_hasCurrent = false;
}

std::size_t OVAudioRing::writeAvailable() const
{
    const quint64 written = m_written.load(std::memory_order_relaxed);
    const quint64 read = m_read.load(std::memory_order_acquire);
    return m_capacity - static_cast<std::size_t>(written - read);
}

std::size_t OVAudioRing::write(const qint16 *samples, std::size_t count, double gain)
{
    const quint64 written = m_written.load(std::memory_order_relaxed);
    const std::size_t n = std::min(count, writeAvailable());
    for (std::size_t i = 0; i < n; ++i)
        m_data[(written + i) & m_mask] = applyGain(samples[i], gain);
    // Publish the samples only after they are in place.
    m_written.store(written + n, std::memory_order_release);
    return n;
}

void OVAudioRing::requestFlush()
{
    m_flushTo.store(m_written.load(std::memory_order_acquire), std::memory_order_release);
}

void OVAudioRing::stamp(double time)
{
    const quint64 w = m_stampsWritten.load(std::memory_order_relaxed);
    if (w - m_stampsRead.load(std::memory_order_acquire) >= StampCapacity)
        return;
    m_stamps[w % StampCapacity] = Stamp{m_written.load(std::memory_order_relaxed), time};
    // Published before the samples it stamps, so a reader that sees them sees it.
    m_stampsWritten.store(w + 1, std::memory_order_release);
}

void OVAudioRing::applyFlush()
{
    const quint64 flushTo = m_flushTo.load(std::memory_order_acquire);
    if (flushTo > m_read.load(std::memory_order_relaxed))
        m_read.store(flushTo, std::memory_order_release);
}

std::size_t OVAudioRing::readAvailable() const
{
    const quint64 written = m_written.load(std::memory_order_acquire);
    const quint64 read = m_read.load(std::memory_order_relaxed);
    return static_cast<std::size_t>(written - read);
}

bool OVAudioRing::read(qint16 *out, std::size_t count)
{
    if (readAvailable() < count)
        return false;
    const quint64 read = m_read.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = m_data[(read + i) & m_mask];
    // Hand the slots back to the producer only after they were copied out.
    m_read.store(read + count, std::memory_order_release);
    return true;
}

std::size_t OVAudioRing::readSome(qint16 *out, std::size_t count)
{
    const std::size_t n = std::min(count, readAvailable());
    const quint64 read = m_read.load(std::memory_order_relaxed);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = m_data[(read + i) & m_mask];
    m_read.store(read + n, std::memory_order_release);
    return n;
}

std::size_t OVAudioRing::skip(std::size_t count)
{
    const std::size_t n = std::min(count, readAvailable());
    m_read.store(m_read.load(std::memory_order_relaxed) + n, std::memory_order_release);
    return n;
}

bool OVAudioRing::timeAtRead(int channels, int rate, double *time)
{
    if (channels <= 0 || rate <= 0 || readAvailable() == 0)
        return false;
    const quint64 read = m_read.load(std::memory_order_relaxed);
    const quint64 written = m_stampsWritten.load(std::memory_order_acquire);
    quint64 next = m_stampsRead.load(std::memory_order_relaxed);
    while (next < written && m_stamps[next % StampCapacity].index <= read) {
        m_current = m_stamps[next % StampCapacity];
        m_hasCurrent = true;
        ++next;
    }
    m_stampsRead.store(next, std::memory_order_release);
    if (!m_hasCurrent || m_current.index > read)
        return false;
    *time = m_current.time + double(read - m_current.index) / channels / rate;
    return true;
}
