#include "widgets/ovwaveformpyramid.h"

#include <QColor>
#include <QLine>
#include <QPainter>
#include <QRect>

#include <algorithm>
#include <cmath>

namespace {

using Extent = OVWaveformPyramid::Extent;

struct Accumulator
{
    int low = 32767;
    int high = -32768;
    bool any = false;

    void add(const Extent &e)
    {
        low = std::min<int>(low, e.low);
        high = std::max<int>(high, e.high);
        any = true;
    }
    void scan(const qint16 *from, const qint16 *to)
    {
        if (from >= to)
            return;
        const auto [lo, hi] = std::minmax_element(from, to);
        add({ *lo, *hi });
    }
};

} // namespace

OVWaveformPyramid::OVWaveformPyramid(const qint16 *samples, qint64 count, int sampleRate, int blockSize,
                                     bool keepSamples)
    : m_count(samples ? std::max<qint64>(count, 0) : 0), m_sampleRate(sampleRate),
      m_blockSize(std::max(blockSize, 1))
{
    if (m_count == 0)
        return;
    if (keepSamples)
        m_samples = samples;
    const qint64 blocks = (m_count + m_blockSize - 1) / m_blockSize;
    std::vector<Extent> level(size_t(blocks), Extent {});
    for (qint64 b = 0; b < blocks; ++b) {
        const qint16 *begin = samples + b * m_blockSize;
        const qint16 *end = samples + std::min(m_count, (b + 1) * m_blockSize);
        const auto [lo, hi] = std::minmax_element(begin, end);
        level[size_t(b)] = { *lo, *hi };
    }
    m_levels.push_back(std::move(level));
    while (m_levels.back().size() > 1) {
        const std::vector<Extent> &below = m_levels.back();
        std::vector<Extent> above((below.size() + 1) / 2);
        for (size_t k = 0; k < above.size(); ++k) {
            const Extent &a = below[2 * k];
            const Extent &b = 2 * k + 1 < below.size() ? below[2 * k + 1] : a;
            above[k] = { std::min(a.low, b.low), std::max(a.high, b.high) };
        }
        m_levels.push_back(std::move(above));
    }
}

qint64 OVWaveformPyramid::levelBytes() const
{
    qint64 bytes = 0;
    for (const std::vector<Extent> &level : m_levels)
        bytes += qint64(level.size() * sizeof(Extent));
    return bytes;
}

bool OVWaveformPyramid::extent(qint64 from, qint64 to, Extent *out) const
{
    from = std::max<qint64>(from, 0);
    to = std::min(to, m_count);
    if (from >= to)
        return false;
    Accumulator acc;
    qint64 first = 0;
    qint64 last = 0; // blocks [first, last) of the first level
    if (m_samples) {
        // The ragged ends come from the samples themselves, whole blocks from the levels.
        const qint64 headEnd = std::min(to, (from + m_blockSize - 1) / m_blockSize * m_blockSize);
        acc.scan(m_samples + from, m_samples + headEnd);
        const qint64 tailStart = std::max(headEnd, to / m_blockSize * m_blockSize);
        acc.scan(m_samples + tailStart, m_samples + to);
        first = headEnd / m_blockSize;
        last = tailStart / m_blockSize;
    } else {
        first = from / m_blockSize;
        last = (to + m_blockSize - 1) / m_blockSize;
    }
    // Climb the levels: an odd edge block has no partner inside the range, so it is taken here
    // and the remaining range halves. Pairs at the right edge of a level are always complete
    // because `last` never exceeds the level's size.
    for (size_t level = 0; first < last && level < m_levels.size(); ++level) {
        const std::vector<Extent> &blocks = m_levels[level];
        if (first & 1)
            acc.add(blocks[size_t(first++)]);
        if (last & 1)
            acc.add(blocks[size_t(--last)]);
        first >>= 1;
        last >>= 1;
    }
    if (!acc.any)
        return false;
    *out = { qint16(acc.low), qint16(acc.high) };
    return true;
}

void OVWaveformPyramid::paint(QPainter &painter, const QRect &rect, double timeAtLeft, double pps,
                              const QColor &color) const
{
    if (m_count == 0 || m_sampleRate <= 0 || !(pps > 0.0) || rect.isEmpty())
        return;
    const double samplesPerPixel = m_sampleRate / pps;
    const double mid = rect.top() + rect.height() / 2.0;
    const double half = (rect.height() - 1) / 2.0;
    const auto y = [&](int value) { return int(std::lround(mid - value * half / 32768.0)); };

    // Only the columns over the track are visited.
    const double firstSample = timeAtLeft * m_sampleRate;
    int x0 = rect.left();
    if (firstSample < 0)
        x0 = std::max(x0, int(std::floor(rect.left() - firstSample / samplesPerPixel)));
    const double endColumn = rect.left() + (double(m_count) - firstSample) / samplesPerPixel;
    const int x1 = int(std::min<double>(rect.right(), std::ceil(endColumn)));
    if (x0 > x1)
        return;

    std::vector<QLine> lines;
    lines.reserve(size_t(x1 - x0 + 1));
    qint64 previousEnd = -1;
    for (int x = x0; x <= x1; ++x) {
        const qint64 from = qint64(std::floor(firstSample + (x - rect.left()) * samplesPerPixel));
        qint64 to = qint64(std::floor(firstSample + (x + 1 - rect.left()) * samplesPerPixel));
        // A column narrower than a sample shows the sample under it; each column reaches back to
        // the last sample of the one before, so the line has no gaps when zoomed in.
        to = std::max(to, from + 1);
        const qint64 start = previousEnd > 0 && previousEnd <= from ? previousEnd - 1 : from;
        previousEnd = to;
        Extent e;
        if (!extent(start, to, &e))
            continue;
        lines.emplace_back(x, y(e.high), x, y(e.low));
    }
    painter.save();
    painter.setPen(QPen(color, 1));
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.drawLines(lines.data(), int(lines.size()));
    painter.restore();
}
