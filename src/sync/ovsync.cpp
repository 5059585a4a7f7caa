#include "sync/ovsync.h"

#include "sync/ovsynclogging.h"
#include "sync/ovsyncmatcher.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>

namespace OVSync {

namespace {

// The coarse search runs at about this rate: enough band for speech and music to match on their
// notes, little enough that an hour of the secondary is a few million samples.
constexpr double CoarseRate = 1500.0;
// Offsets within this of each other are one answer; clock drift adds to it with distance.
constexpr double ClusterToleranceSeconds = 0.5;
constexpr double ClusterDriftAllowance = 300e-6;
// The precision stage correlates this much of both tracks around a point...
constexpr double PreciseWindowSeconds = 1.0;
// ...within this distance of the coarse answer, which is good to a coarse sample plus what drift
// smears within a section.
constexpr double PreciseReachSeconds = 0.012;
// Below this the waveforms around a point share too little to place it to a millisecond.
constexpr double PreciseMinimumCoefficient = 0.08;

bool isCanceled(const std::atomic<bool> *cancel)
{
    return cancel && cancel->load(std::memory_order_relaxed);
}

std::vector<float> toFloat(const OVSamples &track, qint64 from = 0, qint64 to = -1)
{
    if (to < 0)
        to = track.count;
    return std::vector<float>(track.data.begin() + from, track.data.begin() + to);
}

// The samples with their highs lifted (first difference): the bass of music, strongest in the
// waveform and most shifted in phase by a small microphone's roll-off, no longer decides where the
// correlation peaks.
std::vector<float> emphasised(const OVSamples &track, qint64 from, qint64 to)
{
    std::vector<float> out(size_t(to - from));
    for (qint64 i = from; i < to; ++i)
        out[size_t(i - from)] = float(track.data[size_t(i)]) - (i > 0 ? 0.95f * float(track.data[size_t(i - 1)]) : 0.0f);
    return out;
}

// The divisor of the rate nearest to rate / CoarseRate, so the decimated rate stays a whole number.
int decimationFactor(int rate)
{
    int best = 1;
    double bestDistance = std::numeric_limits<double>::max();
    for (int d = 1; d <= rate; ++d) {
        if (rate % d)
            continue;
        const double distance = std::fabs(double(rate) / d - CoarseRate);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = d;
        }
    }
    return best;
}

struct Line
{
    double a = 0.0;
    double b = 0.0;
    double at(double x) const { return a + b * x; }
};

// Least squares of offset over primary position; a constant when the points do not spread.
Line fitLine(const QList<SyncInfo> &points, double minimumSpread)
{
    Line line;
    if (points.isEmpty())
        return line;
    double mx = 0, my = 0;
    for (const SyncInfo &p : points) {
        mx += p.primaryPos;
        my += p.offset();
    }
    mx /= points.size();
    my /= points.size();
    double sxx = 0, sxy = 0, lo = points.first().primaryPos, hi = lo;
    for (const SyncInfo &p : points) {
        sxx += (p.primaryPos - mx) * (p.primaryPos - mx);
        sxy += (p.primaryPos - mx) * (p.offset() - my);
        lo = std::min(lo, p.primaryPos);
        hi = std::max(hi, p.primaryPos);
    }
    if (points.size() >= 2 && hi - lo >= minimumSpread && sxx > 0)
        line.b = sxy / sxx;
    line.a = my - line.b * mx;
    return line;
}

// Section starts a span apart around the middle, ordered so that each next one lies as far as
// possible from those before it: the first few searched cover the whole primary.
QList<qint64> sectionOrder(qint64 count, qint64 n, qint64 spacing)
{
    QList<qint64> grid;
    const qint64 middle = count / 2;
    for (qint64 k = -(middle / spacing) - 1; middle + k * spacing <= count - n; ++k) {
        const qint64 start = middle + k * spacing;
        if (start >= 0)
            grid.append(start);
    }
    QList<qint64> order;
    if (grid.isEmpty())
        return order;
    QList<bool> taken(grid.size(), false);
    qint64 first = 0;
    for (qsizetype i = 0; i < grid.size(); ++i)
        if (std::llabs(grid[i] - middle) < std::llabs(grid[first] - middle))
            first = i;
    order.append(grid[first]);
    taken[first] = true;
    while (order.size() < grid.size()) {
        qsizetype pick = -1;
        qint64 pickDistance = -1;
        for (qsizetype i = 0; i < grid.size(); ++i) {
            if (taken[i])
                continue;
            qint64 d = std::numeric_limits<qint64>::max();
            for (qint64 o : order)
                d = std::min(d, std::llabs(grid[i] - o));
            if (d > pickDistance) {
                pickDistance = d;
                pick = i;
            }
        }
        taken[pick] = true;
        order.append(grid[pick]);
    }
    return order;
}

} // namespace

Parameters Parameters::forDuration(double seconds)
{
    Parameters p;
    p.span = int(std::min(seconds / 10.0, 180.0));
    p.length = int(std::min(seconds / 30.0, 60.0));
    p.maxShift = int(std::min(seconds * 0.25, 600.0));
    return p;
}

bool smoothEnvelope(const OVSamples &source, int windowSize, OVSamples &target, qint64 begin, qint64 end)
{
    if (begin == -1)
        begin = 0;
    if (end == -1)
        end = source.count;
    if (begin < 0 || end < 0 || begin > end || end > source.count || windowSize <= 0)
        return false;
    target.sampleRate = source.sampleRate;
    target.channels = 1;
    target.resize(end - begin);
    const qint64 half = qint64(windowSize * 0.5);
    // An exact integer sum: a float running sum wanders over hours of samples.
    qint64 sum = 0;
    const qint16 *x = source.data.data();
    qint16 *out = target.data.data();
    for (qint64 i = begin; i < end; ++i) {
        sum += std::abs(int(x[i]));
        if (i - begin >= windowSize)
            sum -= std::abs(int(x[i - windowSize]));
        if (i - begin + 1 > half)
            out[i - begin - half] = qint16(std::min<qint64>(sum / windowSize, 32767));
    }
    return true;
}

float meanPositive(const OVSamples &track)
{
    double sum = 0.0;
    qint64 n = 0;
    for (qint64 i = 0; i < track.count; ++i) {
        const qint16 v = track.data[size_t(i)];
        if (v > 0) {
            sum += v;
            ++n;
        }
    }
    return n ? float(sum / double(n)) : 0.0f;
}

double correlation(const qint16 *a, const qint16 *b, qint64 n, int step)
{
    if (step <= 0)
        step = 1;
    if (n <= 0)
        return 0.0;
    double sa = 0, sb = 0;
    qint64 taken = 0;
    for (qint64 i = 0; i < n; i += step) {
        sa += a[i];
        sb += b[i];
        ++taken;
    }
    const double ma = sa / double(taken);
    const double mb = sb / double(taken);
    double sab = 0, saa = 0, sbb = 0;
    for (qint64 i = 0; i < n; i += step) {
        const double da = a[i] - ma;
        const double db = b[i] - mb;
        sab += da * db;
        saa += da * da;
        sbb += db * db;
    }
    const double denominator = std::sqrt(saa * sbb);
    return denominator > 0 ? sab / denominator : 0.0;
}

bool bestOffset(const OVSamples &a, const OVSamples &b, qint64 aPos, qint64 n, qint64 bFrom, qint64 bTo,
                qint64 &result, double &coefficient, int step)
{
    if (step <= 0)
        step = 1;
    double best = -1.0;
    bool found = false;
    if (n <= 0 || aPos < 0 || aPos + n > a.count)
        return false;
    for (qint64 p = bFrom; p <= bTo; p += step) {
        if (p < 0 || p + n > b.count)
            continue;
        const double c = correlation(a.data.data() + aPos, b.data.data() + p, n, 8);
        if (!found || c > best) {
            best = c;
            result = p;
            found = true;
        }
    }
    if (found)
        coefficient = best;
    return found;
}

OVSamples decimate(const OVSamples &track, int factor)
{
    OVSamples out;
    factor = std::max(factor, 1);
    out.channels = 1;
    out.sampleRate = track.sampleRate / factor;
    out.resize(track.count / factor);
    const qint16 *x = track.data.data();
    qint16 *y = out.data.data();
    const qint64 count = out.count;
    auto run = [&](auto f) {
        for (qint64 i = 0; i < count; ++i) {
            int sum = 0;
            for (int k = 0; k < int(f); ++k)
                sum += x[i * qint64(f) + k];
            y[i] = qint16(sum / int(f));
        }
    };
    // The usual rates get a loop the compiler can unroll.
    if (factor == 15)
        run(std::integral_constant<int, 15>());
    else if (factor == 32)
        run(std::integral_constant<int, 32>());
    else
        run(factor);
    return out;
}

void keepBestCluster(QList<SyncInfo> &points, int sampleRate)
{
    if (points.size() < 2)
        return;
    const double tolerance = std::trunc(ClusterToleranceSeconds * sampleRate);
    auto agree = [&](const SyncInfo &p, const SyncInfo &q) {
        return std::fabs(p.offset() - q.offset())
            <= tolerance + ClusterDriftAllowance * std::fabs(p.primaryPos - q.primaryPos);
    };
    qsizetype best = 0;
    double bestScore = -1.0;
    for (qsizetype i = 0; i < points.size(); ++i) {
        double score = 0.0;
        for (const SyncInfo &q : points)
            if (agree(points[i], q))
                score += std::fabs(q.coefficient);
        if (score > bestScore) {
            bestScore = score;
            best = i;
        }
    }
    const SyncInfo centre = points[best];
    points.removeIf([&](const SyncInfo &q) { return !agree(centre, q); });
}

void repeatLastPoint(QList<SyncInfo> &points, qint64 primaryCount)
{
    if (points.size() < 2)
        return;
    const SyncInfo last = points.last();
    const double step = last.primaryPos - points[points.size() - 2].primaryPos;
    if (!(step > 0))
        return;
    for (double pos = last.primaryPos + step; pos < double(primaryCount); pos += step) {
        SyncInfo copy = last;
        copy.primaryPos = pos;
        copy.secondaryPos = pos - last.offset();
        points.append(copy);
    }
}

int findSyncPoints(const OVSamples &envA, const OVSamples &envB, [[maybe_unused]] int maxShiftSec, int lengthSec,
                   int spanSec,
                   QList<SyncInfo> &result, const std::atomic<bool> *cancel, Progress *progress)
{
    result.clear();
    const int r = envA.sampleRate;
    if (r <= 0 || envB.sampleRate != r || envA.count == 0 || envB.count == 0)
        return 0;

    // A section needs about a second of sound to be recognised anywhere; a short secondary can
    // only be found with a section shorter than itself.
    qint64 n = qint64(std::max(lengthSec, 1)) * r;
    n = std::min({ n, envA.count, envB.count / 2 });
    if (n < r)
        return 0;

    OVSamples loudA;
    qint16 level = 0;
    {
        OVSamples loudB;
        const int window = std::max(1, 128 * r / 22050);
        smoothEnvelope(envA, window, loudA);
        smoothEnvelope(envB, window, loudB);
        level = qint16(std::trunc(std::min(meanPositive(loudA), meanPositive(loudB))));
    }

    const qint64 spacing = std::max<qint64>(qint64(std::max(spanSec, 1)) * r, n);
    const qint64 loudBlock = std::max(1, 200 * r / 22050);
    const qint64 localReach = qint64(ClusterToleranceSeconds * r);

    const std::vector<float> b = toFloat(envB);
    std::vector<float> block(static_cast<size_t>(n));
    std::unique_ptr<OVSyncMatcher> whole;

    const QList<qint64> order = sectionOrder(envA.count, n, spacing);
    QList<SyncInfo> candidates;
    QList<SyncInfo> cluster;
    for (qsizetype s = 0; s < order.size(); ++s) {
        if (isCanceled(cancel))
            break;
        if (progress)
            progress->setProgress(int(s), 0, int(order.size()));
        // Start at the first loud place of the section, so that a section does not match silence.
        qint64 i = order[s];
        const qint64 limit = std::min(order[s] + spacing - n, envA.count - n);
        bool loud = false;
        for (; i <= limit; i += loudBlock) {
            const qint16 *e = loudA.data.data() + i;
            if (std::any_of(e, e + std::min(loudBlock, envA.count - i), [&](qint16 v) { return v > level; })) {
                loud = true;
                break;
            }
        }
        if (!loud)
            continue;
        std::copy(envA.data.begin() + i, envA.data.begin() + i + n, block.begin());

        OVSyncMatcher::Match m;
        if (cluster.size() < 2) {
            // Until two sections agree, any place of the secondary may hold the sound: it may be
            // a short piece of the primary's event, or start long before it.
            if (!whole)
                whole = std::make_unique<OVSyncMatcher>(b.data(), qint64(b.size()), n, r);
            m = whole->match(block.data(), n);
        } else {
            const Line line = fitLine(cluster, double(n));
            const double centre = double(i) + double(n) / 2;
            const qint64 expected = qint64(std::llround(centre - line.at(centre) - double(n) / 2));
            const qint64 from = std::max<qint64>(0, expected - localReach);
            const qint64 to = std::min<qint64>(envB.count, expected + localReach + n);
            if (to - from < n)
                continue;
            OVSyncMatcher local(b.data() + from, to - from, n, r);
            m = local.match(block.data(), n);
            if (m.valid)
                m.position += from;
        }
        if (!OVSyncMatcher::isClear(m))
            continue;
        SyncInfo point;
        point.coefficient = correlation(envA.data.data() + i, envB.data.data() + m.position, n, 1);
        point.length = int(n);
        point.primaryPos = double(i + n / 2);
        point.secondaryPos = double(m.position + n / 2);
        candidates.append(point);
        cluster = candidates;
        keepBestCluster(cluster, r);
        // The whole-track spectrum is a large buffer; once the offset is known it is not needed.
        if (cluster.size() >= 2)
            whole.reset();
    }
    if (progress)
        progress->setProgress(int(order.size()), 0, int(order.size()));
    result = cluster;
    std::sort(result.begin(), result.end(),
              [](const SyncInfo &p, const SyncInfo &q) { return p.primaryPos < q.primaryPos; });
    return int(result.size());
}

bool refinePrecise(const OVSamples &primary, const OVSamples &secondary, SyncInfo &point)
{
    const int rate = primary.sampleRate;
    if (rate <= 0 || secondary.sampleRate != rate)
        return false;
    const qint64 reach = qint64(PreciseReachSeconds * rate);
    const qint64 pc = std::llround(point.primaryPos);
    const qint64 sc = std::llround(point.secondaryPos);
    qint64 half = qint64(PreciseWindowSeconds * rate / 2);
    half = std::min({ half, pc, primary.count - pc, sc - reach, secondary.count - sc - reach });
    if (half < rate / 8)
        return false;
    const qint64 n = 2 * half;

    std::vector<float> a = emphasised(primary, pc - half, pc + half);
    const std::vector<float> b = emphasised(secondary, sc - half - reach, sc + half + reach);
    const double meanA = std::accumulate(a.begin(), a.end(), 0.0) / double(n);
    double energyA = 0.0;
    for (float &v : a) {
        v = float(v - meanA);
        energyA += double(v) * v;
    }
    if (energyA <= 0)
        return false;

    OVSyncMatcher matcher(b.data(), qint64(b.size()), n, rate);
    std::vector<float> dot;
    matcher.correlate(a.data(), n, dot);
    if (qint64(dot.size()) != 2 * reach + 1)
        return false;

    // Sliding sums give each lag's variance of the secondary stretch; the primary is zero-mean,
    // so the plain dot product is already the covariance.
    double sum = 0, sumSquares = 0;
    for (qint64 i = 0; i < n; ++i) {
        sum += b[size_t(i)];
        sumSquares += double(b[size_t(i)]) * b[size_t(i)];
    }
    std::vector<double> ncc(dot.size());
    for (qint64 k = 0; k <= 2 * reach; ++k) {
        if (k > 0) {
            const double out = b[size_t(k - 1)];
            const double in = b[size_t(k - 1 + n)];
            sum += in - out;
            sumSquares += in * in - out * out;
        }
        const double variance = sumSquares - sum * sum / double(n);
        ncc[size_t(k)] = variance > 0 ? dot[size_t(k)] / std::sqrt(energyA * variance) : 0.0;
    }
    qint64 best = 0;
    for (qint64 k = 1; k <= 2 * reach; ++k)
        if (std::fabs(ncc[size_t(k)]) > std::fabs(ncc[size_t(best)]))
            best = k;
    // A best at the edge of the reach means the true peak lies outside it: the coarse answer was
    // wrong here.
    if (best == 0 || best == 2 * reach)
        return false;
    const double sign = ncc[size_t(best)] < 0 ? -1.0 : 1.0;
    const double y0 = sign * ncc[size_t(best - 1)];
    const double y1 = sign * ncc[size_t(best)];
    const double y2 = sign * ncc[size_t(best + 1)];
    if (std::fabs(y1) < PreciseMinimumCoefficient)
        return false;
    const double curvature = y0 - 2 * y1 + y2;
    const double delta = curvature < 0 ? std::clamp(0.5 * (y0 - y2) / curvature, -0.5, 0.5) : 0.0;

    point.coefficient = ncc[size_t(best)];
    point.length = int(n);
    point.primaryPos = double(pc);
    point.secondaryPos = double(sc - reach + best) + delta;
    return true;
}

Fit fitDrift(QList<SyncInfo> &points, int sampleRate, double toleranceSeconds)
{
    Fit fit;
    if (points.isEmpty() || sampleRate <= 0)
        return fit;
    const double tolerance = toleranceSeconds * sampleRate;
    Line line;
    for (;;) {
        line = fitLine(points, double(sampleRate));
        if (points.size() < 3)
            break;
        qsizetype worst = 0;
        double worstDistance = -1;
        for (qsizetype i = 0; i < points.size(); ++i) {
            const double d = std::fabs(points[i].offset() - line.at(points[i].primaryPos));
            if (d > worstDistance) {
                worstDistance = d;
                worst = i;
            }
        }
        if (worstDistance <= tolerance)
            break;
        points.removeAt(worst);
    }
    fit.a = line.a / sampleRate;
    fit.b = line.b;
    fit.points = int(points.size());
    return fit;
}

Result autoSync(const OVSamples &primary, const OVSamples &secondary, Progress *progress,
                const std::atomic<bool> *cancel)
{
    Result res;
    const int rate = primary.sampleRate;
    if (rate <= 0 || secondary.sampleRate != rate || primary.count == 0 || secondary.count == 0) {
        qCWarning(lcSync) << "OVSync::autoSync: tracks unusable, rates" << rate << secondary.sampleRate << "counts"
                   << primary.count << secondary.count;
        return res;
    }
    if (progress)
        progress->setStage(QStringLiteral("Smoothing samples"));
    const int factor = decimationFactor(rate);
    const OVSamples coarseA = decimate(primary, factor);
    const OVSamples coarseB = decimate(secondary, factor);
    const Parameters params = Parameters::forDuration(primary.duration());

    if (progress)
        progress->setStage(QStringLiteral("Finding the sync points..."));
    QList<SyncInfo> coarse;
    findSyncPoints(coarseA, coarseB, params.maxShift, params.length, params.span, coarse, cancel, progress);
    if (isCanceled(cancel)) {
        res.canceled = true;
        return res;
    }
    QList<SyncInfo> points;
    for (SyncInfo p : coarse) {
        p.primaryPos *= factor;
        p.secondaryPos *= factor;
        p.length *= factor;
        points.append(p);
    }
    repeatLastPoint(points, primary.count);
    // Copies of the last point that land on a section already found add nothing.
    QList<SyncInfo> distinct;
    for (const SyncInfo &p : points) {
        const bool near = std::any_of(distinct.begin(), distinct.end(), [&](const SyncInfo &q) {
            return std::fabs(q.primaryPos - p.primaryPos) < double(p.length) / 2;
        });
        if (!near)
            distinct.append(p);
    }

    if (progress)
        progress->setStage(QStringLiteral("Refining the sync points..."));
    for (qsizetype i = 0; i < distinct.size(); ++i) {
        if (isCanceled(cancel)) {
            res.canceled = true;
            break;
        }
        if (progress)
            progress->setProgress(int(i), 0, int(distinct.size()));
        SyncInfo p = distinct[i];
        if (refinePrecise(primary, secondary, p))
            res.points.append(p);
    }
    std::sort(res.points.begin(), res.points.end(),
              [](const SyncInfo &p, const SyncInfo &q) { return p.primaryPos < q.primaryPos; });
    // Opposite polarities at once cannot both be the same sound.
    if (!res.points.isEmpty()) {
        double vote = 0;
        for (const SyncInfo &p : res.points)
            vote += p.coefficient;
        res.points.removeIf([&](const SyncInfo &p) { return (p.coefficient < 0) != (vote < 0); });
    }
    res.fit = fitDrift(res.points, rate);
    qCInfo(lcSync) << "OVSync::autoSync:" << coarse.size() << "coarse points," << res.points.size() << "refined, offset"
             << res.fit.a << "drift ppm" << res.fit.driftPpm();
    return res;
}

} // namespace OVSync
