#include "sync/ovsyncmap.h"

#include <algorithm>
#include <cmath>

OVSyncMap::OVSyncMap(const QList<OVSync::SyncInfo> &points, int sampleRate, const OVSync::Fit &fit)
{
    if (sampleRate <= 0)
        return;
    for (const OVSync::SyncInfo &p : points)
        m_markers.append(QPointF(p.primaryPos / sampleRate, p.secondaryPos / sampleRate));
    std::sort(m_markers.begin(), m_markers.end(), [](const QPointF &a, const QPointF &b) { return a.x() < b.x(); });
    // A marker that would make time run backwards between two others was misplaced; keep the
    // earlier ones.
    QList<QPointF> monotonic;
    for (const QPointF &m : m_markers)
        if (monotonic.isEmpty() || (m.x() > monotonic.last().x() && m.y() > monotonic.last().y()))
            monotonic.append(m);
    m_markers = monotonic;
    if (fit.points > 0 && std::isfinite(fit.b) && std::fabs(fit.b) < 0.01)
        m_outerSlope = 1.0 - fit.b;
}

double OVSyncMap::secondaryAt(double t) const
{
    if (m_markers.isEmpty())
        return t;
    if (t <= m_markers.first().x())
        return m_markers.first().y() + (t - m_markers.first().x()) * m_outerSlope;
    if (t >= m_markers.last().x())
        return m_markers.last().y() + (t - m_markers.last().x()) * m_outerSlope;
    const auto next = std::upper_bound(m_markers.begin(), m_markers.end(), t,
                                       [](double v, const QPointF &m) { return v < m.x(); });
    const QPointF &b = *next;
    const QPointF &a = *(next - 1);
    return a.y() + (t - a.x()) * (b.y() - a.y()) / (b.x() - a.x());
}

OVSamples OVSyncMap::align(const OVSamples &secondary, qint64 count) const
{
    OVSamples out;
    out.sampleRate = secondary.sampleRate;
    out.channels = 1;
    out.resize(count);
    if (secondary.sampleRate <= 0 || secondary.count < 4)
        return out;
    const double rate = secondary.sampleRate;
    const qint16 *x = secondary.data.data();
    const qint64 last = secondary.count - 1;
    auto at = [&](qint64 i) { return double(x[std::clamp<qint64>(i, 0, last)]); };
    // The position is linear within each stretch between markers: walk it by increments instead of
    // searching the markers for every sample.
    QList<double> breaks;
    for (const QPointF &m : m_markers)
        breaks.append(m.x() * rate);
    breaks.append(double(count));
    qint64 i = 0;
    for (double end : breaks) {
        const qint64 stop = std::min<qint64>(count, qint64(std::ceil(end)));
        if (stop <= i)
            continue;
        const double s0 = secondaryAt(double(i) / rate) * rate;
        const double step = end > double(i) ? (secondaryAt(end / rate) * rate - s0) / (end - double(i)) : 0.0;
        for (qint64 k = i; k < stop; ++k) {
            const double pos = s0 + double(k - i) * step;
            if (pos < 0 || pos > double(last))
                continue;
            // Catmull-Rom between the four nearest samples: a linear blend would dull the highs.
            const qint64 j = qint64(std::floor(pos));
            const double f = pos - double(j);
            const double p0 = at(j - 1), p1 = at(j), p2 = at(j + 1), p3 = at(j + 2);
            const double v = p1
                + 0.5 * f * (p2 - p0 + f * (2.0 * p0 - 5.0 * p1 + 4.0 * p2 - p3 + f * (3.0 * (p1 - p2) + p3 - p0)));
            out.data[size_t(k)] = qint16(std::clamp(std::lround(v), -32768L, 32767L));
        }
        i = stop;
    }
    return out;
}
