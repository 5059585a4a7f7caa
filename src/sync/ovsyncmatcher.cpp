#include "sync/ovsyncmatcher.h"

#include <QMutex>

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// FFTW's planner is not thread-safe; execution of distinct plans is.
QMutex &plannerMutex()
{
    static QMutex mutex;
    return mutex;
}

// Positions this close to the best one belong to its own peak (the main lobe, early echoes of a
// room), not to a rival match.
constexpr double RivalExclusionSeconds = 0.05;

} // namespace

qint64 OVSyncMatcher::fastLength(qint64 n)
{
    qint64 best = 1;
    while (best < n)
        best *= 2;
    // The smallest 7-smooth number at or above n; powers of two alone can waste almost half.
    for (qint64 p7 = 1; p7 < best; p7 *= 7)
        for (qint64 p5 = p7; p5 < best; p5 *= 5)
            for (qint64 p3 = p5; p3 < best; p3 *= 3) {
                qint64 v = p3;
                while (v < n)
                    v *= 2;
                best = std::min(best, v);
            }
    // FFTW's real transforms want an even length.
    return best % 2 ? best * 2 : best;
}

OVSyncMatcher::OVSyncMatcher(const float *reference, qint64 count, qint64 maxBlock, double rate)
    : m_count(std::max<qint64>(count, 0)), m_maxBlock(std::max<qint64>(maxBlock, 1)), m_rate(rate)
{
    m_length = fastLength(m_count + m_maxBlock);
    const qint64 bins = m_length / 2 + 1;
    m_real = fftwf_alloc_real(size_t(m_length));
    m_reference = fftwf_alloc_complex(size_t(bins));
    m_work = fftwf_alloc_complex(size_t(bins));
    {
        QMutexLocker lock(&plannerMutex());
        m_forward = fftwf_plan_dft_r2c_1d(int(m_length), m_real, m_work, FFTW_ESTIMATE);
        m_inverse = fftwf_plan_dft_c2r_1d(int(m_length), m_work, m_real, FFTW_ESTIMATE);
    }
    // Below a few tens of hertz lie rumble and DC offsets that differ between devices; the top of
    // the band is where decimation folded other frequencies back.
    const double binHz = rate / double(m_length);
    m_binLow = std::max<qint64>(1, qint64(std::ceil(40.0 / binHz)));
    m_binHigh = std::min<qint64>(bins - 1, qint64(0.85 * (rate / 2) / binHz));

    std::memcpy(m_real, reference, size_t(m_count) * sizeof(float));
    std::fill(m_real + m_count, m_real + m_length, 0.0f);
    fftwf_execute_dft_r2c(m_forward, m_real, m_reference);
}

OVSyncMatcher::~OVSyncMatcher()
{
    QMutexLocker lock(&plannerMutex());
    fftwf_destroy_plan(m_forward);
    fftwf_destroy_plan(m_inverse);
    fftwf_free(m_real);
    fftwf_free(m_reference);
    fftwf_free(m_work);
}

bool OVSyncMatcher::transformBlock(const float *block, qint64 n)
{
    if (n <= 0 || n > m_maxBlock || n > m_count)
        return false;
    std::memcpy(m_real, block, size_t(n) * sizeof(float));
    std::fill(m_real + n, m_real + m_length, 0.0f);
    fftwf_execute_dft_r2c(m_forward, m_real, m_work);
    return true;
}

void OVSyncMatcher::correlate(const float *block, qint64 n, std::vector<float> &out)
{
    out.clear();
    if (!transformBlock(block, n))
        return;
    const qint64 bins = m_length / 2 + 1;
    const float scale = 1.0f / float(m_length);
    for (qint64 k = 0; k < bins; ++k) {
        const float re = m_reference[k][0] * m_work[k][0] + m_reference[k][1] * m_work[k][1];
        const float im = m_reference[k][1] * m_work[k][0] - m_reference[k][0] * m_work[k][1];
        m_work[k][0] = re * scale;
        m_work[k][1] = im * scale;
    }
    fftwf_execute_dft_c2r(m_inverse, m_work, m_real);
    out.assign(m_real, m_real + (m_count - n + 1));
}

OVSyncMatcher::Match OVSyncMatcher::match(const float *block, qint64 n, qint64 from, qint64 to)
{
    Match result;
    if (n <= 0 || n > m_maxBlock || n > m_count)
        return result;
    const qint64 last = m_count - n;
    from = std::max<qint64>(from, 0);
    to = (to < 0) ? last : std::min(to, last);
    if (from > to || !transformBlock(block, n))
        return result;

    // Cross spectrum R * conj(B), brought to unit magnitude inside the band. A small floor keeps
    // bins where neither track has energy from turning rounding noise into signal.
    const qint64 bins = m_length / 2 + 1;
    double meanMagnitude = 0.0;
    for (qint64 k = m_binLow; k <= m_binHigh; ++k) {
        const float re = m_reference[k][0] * m_work[k][0] + m_reference[k][1] * m_work[k][1];
        const float im = m_reference[k][1] * m_work[k][0] - m_reference[k][0] * m_work[k][1];
        m_work[k][0] = re;
        m_work[k][1] = im;
        meanMagnitude += std::hypot(re, im);
    }
    meanMagnitude /= double(std::max<qint64>(1, m_binHigh - m_binLow + 1));
    const float floor = float(1e-3 * meanMagnitude) + 1e-30f;
    for (qint64 k = 0; k < bins; ++k) {
        if (k < m_binLow || k > m_binHigh) {
            m_work[k][0] = m_work[k][1] = 0.0f;
            continue;
        }
        const float scale = 1.0f / (std::hypot(m_work[k][0], m_work[k][1]) + floor);
        m_work[k][0] *= scale;
        m_work[k][1] *= scale;
    }
    fftwf_execute_dft_c2r(m_inverse, m_work, m_real);

    // m_real[j] now holds the correlation of the block with the reference starting at j.
    qint64 best = from;
    double bestValue = -1.0;
    double sumSquares = 0.0;
    for (qint64 j = from; j <= to; ++j) {
        const double v = std::fabs(m_real[j]);
        sumSquares += v * v;
        if (v > bestValue) {
            bestValue = v;
            best = j;
        }
    }
    const qint64 positions = to - from + 1;
    const double rms = std::sqrt(sumSquares / double(positions));
    const qint64 exclusion = std::max<qint64>(2, qint64(RivalExclusionSeconds * m_rate));
    double rival = 0.0;
    for (qint64 j = from; j <= to; ++j) {
        if (j >= best - exclusion && j <= best + exclusion)
            continue;
        rival = std::max<double>(rival, std::fabs(m_real[j]));
    }
    result.valid = true;
    result.position = best;
    result.peak = bestValue;
    result.snr = rms > 0 ? bestValue / rms : 0.0;
    result.ratio = rival > 0 ? bestValue / rival : (bestValue > 0 ? 1e9 : 0.0);
    return result;
}

bool OVSyncMatcher::isClear(const Match &m)
{
    return m.valid && m.snr >= 9.0 && m.ratio >= 1.5;
}
