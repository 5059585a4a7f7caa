#include "analysis/ovagreement.h"

#include "analysis/ovstatistics.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

struct Pair
{
    const OVCodingSnapshot::Label *a = nullptr;
    const OVCodingSnapshot::Label *b = nullptr;
};

QList<Pair> matchLabels(const OVCodingSnapshot::Coder &a, const OVCodingSnapshot::Coder &b)
{
    QList<Pair> pairs;
    std::vector<bool> taken(std::size_t(b.labels.size()), false);
    auto find = [&](auto same) -> const OVCodingSnapshot::Label * {
        for (int i = 0; i < b.labels.size(); ++i) {
            if (!taken[std::size_t(i)] && same(b.labels.at(i))) {
                taken[std::size_t(i)] = true;
                return &b.labels.at(i);
            }
        }
        return nullptr;
    };
    for (const OVCodingSnapshot::Label &la : a.labels) {
        const OVCodingSnapshot::Label *lb = nullptr;
        if (!la.key.isNull())
            lb = find([&](const OVCodingSnapshot::Label &l) { return l.key == la.key; });
        if (!lb)
            lb = find([&](const OVCodingSnapshot::Label &l) { return l.name == la.name; });
        pairs.append(Pair {&la, lb});
    }
    for (int i = 0; i < b.labels.size(); ++i)
        if (!taken[std::size_t(i)])
            pairs.append(Pair {nullptr, &b.labels.at(i)});
    return pairs;
}

void markSlices(const OVCodingSnapshot::Label *label, double from, double to, double resolution,
    std::vector<unsigned char> &present)
{
    if (!label)
        return;
    const qint64 slices = qint64(present.size());
    for (const OVCodingSnapshot::Segment &s : label->segments) {
        if (s.isOpen() || s.end <= from || s.start >= to)
            continue;
        const auto [first, last] = OVAgreement::sliceRange(s.start, s.end, from, resolution, slices);
        std::fill(present.begin() + first, present.begin() + last, 1);
    }
}

std::vector<double> onsets(const OVCodingSnapshot::Label *label, double from, double to)
{
    std::vector<double> out;
    if (!label)
        return out;
    for (const OVCodingSnapshot::Segment &s : label->segments)
        if (!s.isOpen() && s.start >= from && s.start < to)
            out.push_back(s.start);
    std::sort(out.begin(), out.end());
    return out;
}
} // namespace

double OVAgreement::kappa(qint64 both, qint64 onlyA, qint64 onlyB, qint64 neither)
{
    const double n = double(both + onlyA + onlyB + neither);
    if (n <= 0)
        return NaN;
    const double observed = (both + neither) / n;
    const double pa = (both + onlyA) / n;
    const double pb = (both + onlyB) / n;
    const double chance = pa * pb + (1.0 - pa) * (1.0 - pb);
    if (1.0 - chance < 1e-12)
        return NaN;
    return (observed - chance) / (1.0 - chance);
}

std::pair<qint64, qint64> OVAgreement::sliceRange(double start, double end, double from, double resolution, qint64 slices)
{
    auto mid = [&](qint64 i) { return from + (double(i) + 0.5) * resolution; };
    // The first slice whose midpoint is at or after `t`: a first guess, then corrected against
    // the midpoints themselves, so that a boundary falling on a midpoint is decided exactly.
    auto firstAtOrAfter = [&](double t) {
        qint64 i = qint64(std::ceil((t - from) / resolution - 0.5));
        i = std::clamp<qint64>(i, 0, slices);
        while (i < slices && mid(i) < t)
            ++i;
        while (i > 0 && mid(i - 1) >= t)
            --i;
        return i;
    };
    const qint64 first = firstAtOrAfter(start);
    const qint64 last = firstAtOrAfter(end);
    return {first, std::max(first, last)};
}

OVAgreement::Result OVAgreement::compute(const OVCodingSnapshot &snapshot, const OVCodingSnapshot::Coder &a,
    const OVCodingSnapshot::Coder &b, const Options &options)
{
    const OVStatistics::Window window = OVStatistics::resolve(snapshot, {options.from, options.to});
    Result result;
    result.coderA = a.name;
    result.coderB = b.name;
    result.from = window.from;
    result.to = window.to;
    const double resolution = options.resolution > 0.0 ? options.resolution : 0.1;
    result.slices = window.to > window.from
        ? qint64(std::floor((window.to - window.from) / resolution + 1e-9))
        : 0;

    const QList<Pair> pairs = matchLabels(a, b);
    const int n = int(pairs.size());
    const std::size_t slices = std::size_t(result.slices);
    auto presentA = std::vector<std::vector<unsigned char>>(std::size_t(n));
    auto presentB = std::vector<std::vector<unsigned char>>(std::size_t(n));
    qint64 pooled[4] = {0, 0, 0, 0};
    double onsetDiffSum = 0.0;

    for (int i = 0; i < n; ++i) {
        const Pair &p = pairs.at(i);
        LabelResult label;
        const OVCodingSnapshot::Label *named = p.a ? p.a : p.b;
        label.label = named->name;
        label.key = named->key;

        auto &pa = presentA[std::size_t(i)];
        auto &pb = presentB[std::size_t(i)];
        pa.assign(slices, 0);
        pb.assign(slices, 0);
        markSlices(p.a, window.from, window.to, resolution, pa);
        markSlices(p.b, window.from, window.to, resolution, pb);
        qint64 both = 0, onlyA = 0, onlyB = 0;
        for (std::size_t s = 0; s < slices; ++s) {
            both += pa[s] && pb[s];
            onlyA += pa[s] && !pb[s];
            onlyB += !pa[s] && pb[s];
        }
        const qint64 neither = qint64(slices) - both - onlyA - onlyB;
        label.slicesA = both + onlyA;
        label.slicesB = both + onlyB;
        label.slicesBoth = both;
        label.kappa = kappa(both, onlyA, onlyB, neither);
        label.percent = slices ? 100.0 * double(both + neither) / double(slices) : NaN;
        pooled[0] += both;
        pooled[1] += onlyA;
        pooled[2] += onlyB;
        pooled[3] += neither;

        const std::vector<double> ea = onsets(p.a, window.from, window.to);
        const std::vector<double> eb = onsets(p.b, window.from, window.to);
        std::size_t ia = 0, ib = 0;
        double diffSum = 0.0;
        while (ia < ea.size() && ib < eb.size()) {
            const double d = eb[ib] - ea[ia];
            if (std::abs(d) <= options.tolerance) {
                ++label.matched;
                diffSum += std::abs(d);
                ++ia;
                ++ib;
            } else if (ea[ia] < eb[ib]) {
                ++label.missed;
                ++ia;
            } else {
                ++label.extra;
                ++ib;
            }
        }
        label.missed += int(ea.size() - ia);
        label.extra += int(eb.size() - ib);
        label.meanOnsetDiff = label.matched ? diffSum / label.matched : NaN;
        result.matched += label.matched;
        result.missed += label.missed;
        result.extra += label.extra;
        onsetDiffSum += diffSum;
        result.labels.append(label);
    }

    result.kappa = kappa(pooled[0], pooled[1], pooled[2], pooled[3]);
    const qint64 decisions = pooled[0] + pooled[1] + pooled[2] + pooled[3];
    result.percent = decisions ? 100.0 * double(pooled[0] + pooled[3]) / double(decisions) : NaN;
    result.meanOnsetDiff = result.matched ? onsetDiffSum / result.matched : NaN;

    // The confusion matrix: for every slice, each label of A present meets each label of B
    // present, "no label" standing in on a side that has none.
    result.confusion = QVector<QVector<qint64>>(n + 1, QVector<qint64>(n + 1, 0));
    std::vector<int> inA, inB;
    for (std::size_t s = 0; s < slices; ++s) {
        inA.clear();
        inB.clear();
        for (int i = 0; i < n; ++i) {
            if (presentA[std::size_t(i)][s])
                inA.push_back(i);
            if (presentB[std::size_t(i)][s])
                inB.push_back(i);
        }
        if (inA.empty())
            inA.push_back(n);
        if (inB.empty())
            inB.push_back(n);
        for (int ra : inA)
            for (int cb : inB)
                ++result.confusion[ra][cb];
    }
    return result;
}
