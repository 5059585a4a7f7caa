#pragma once

#include <QtGlobal>

#include <vector>

class QColor;
class QPainter;
class QRect;

// The lowest and highest sample of every block of a track, at block sizes that double from one
// level to the next. Any stretch of the track is answered from at most two blocks per level, so a
// column of a waveform costs the same whether the track lasts a minute or ten hours, and drawing
// time depends on the width drawn, never on the recording's length.
//
// Immutable once built: views on the GUI thread share one that a worker built.
class OVWaveformPyramid
{
public:
    struct Extent
    {
        qint16 low = 0;
        qint16 high = 0;
    };

    // Builds the levels from `count` samples, `blockSize` samples to a block of the first level.
    // With `keepSamples` the pointer is kept and stretches are exact to the sample; the samples
    // must then outlive the pyramid. Without, a stretch counts every block it touches in full (the
    // levels of an hour at 32 samples a block take 20 MB; the samples themselves 160 MB).
    OVWaveformPyramid(const qint16 *samples, qint64 count, int sampleRate, int blockSize, bool keepSamples);

    qint64 count() const { return m_count; }
    int sampleRate() const { return m_sampleRate; }
    int blockSize() const { return m_blockSize; }
    bool keepsSamples() const { return m_samples != nullptr; }
    double duration() const { return m_sampleRate > 0 ? double(m_count) / m_sampleRate : 0.0; }
    // Bytes taken by the levels.
    qint64 levelBytes() const;

    // The extent of samples [from, to), clipped to the track; false when none of it lies there.
    bool extent(qint64 from, qint64 to, Extent *out) const;

    // Draws the track into `rect`: its left edge shows time `timeAtLeft` (seconds) and one second
    // takes `pps` pixels. Each column shows the extent of the samples under it, joined to the
    // column before so that a zoomed-in wave stays one line.
    void paint(QPainter &painter, const QRect &rect, double timeAtLeft, double pps, const QColor &color) const;

private:
    const qint16 *m_samples = nullptr;
    qint64 m_count = 0;
    int m_sampleRate = 0;
    int m_blockSize = 1;
    // m_levels[0] has one extent per block; every next level one per pair of the level below.
    std::vector<std::vector<Extent>> m_levels;
};
