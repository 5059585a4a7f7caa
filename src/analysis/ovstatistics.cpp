#include "analysis/ovstatistics.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// A zero-length segment counts where it lies inside [from, to); a longer one where it overlaps
// the window by more than a point, so that touching the window's edge does not count.
bool inWindow(double start, double end, double from, double to)
{
    if (start == end)
        return start >= from && start < to;
    return start < to && end > from;
}

double median(std::vector<double> &values)
{
    const std::size_t n = values.size();
    std::sort(values.begin(), values.end());
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

// Length of the union of intervals, each already clipped to the window.
double unionLength(std::vector<std::pair<double, double>> &spans)
{
    std::sort(spans.begin(), spans.end());
    double covered = 0.0;
    double runStart = 0.0;
    double runEnd = -std::numeric_limits<double>::infinity();
    for (const auto &[s, e] : spans) {
        if (s > runEnd) {
            if (runEnd > runStart)
                covered += runEnd - runStart;
            runStart = s;
            runEnd = e;
        } else {
            runEnd = std::max(runEnd, e);
        }
    }
    if (runEnd > runStart)
        covered += runEnd - runStart;
    return covered;
}
} // namespace

OVStatistics::Window OVStatistics::resolve(const OVCodingSnapshot &snapshot, Window window)
{
    if (window.to < 0.0)
        window.to = snapshot.observedEnd();
    window.from = std::max(0.0, window.from);
    return window;
}

OVStatistics::Row OVStatistics::labelRow(const QList<OVCodingSnapshot::Segment> &segments, Window window,
    const QStringList *only)
{
    Row row;
    std::vector<double> durations;
    std::vector<std::pair<double, double>> spans;
    double firstOnset = std::numeric_limits<double>::infinity();
    QSet<QString> members;
    if (only)
        members = QSet<QString>(only->cbegin(), only->cend());
    for (const OVCodingSnapshot::Segment &s : segments) {
        if (only && !members.contains(s.id))
            continue;
        if (s.isOpen()) {
            ++row.openCount;
            continue;
        }
        if (!inWindow(s.start, s.end, window.from, window.to))
            continue;
        const double a = std::max(s.start, window.from);
        const double b = std::min(s.end, window.to);
        durations.push_back(b - a);
        spans.emplace_back(a, b);
        firstOnset = std::min(firstOnset, a);
    }
    row.count = int(durations.size());
    const double length = window.to - window.from;
    for (double d : durations)
        row.total += d;
    if (row.count > 0) {
        row.mean = row.total / row.count;
        row.min = *std::min_element(durations.begin(), durations.end());
        row.max = *std::max_element(durations.begin(), durations.end());
        row.median = median(durations);
        row.latency = firstOnset - window.from;
    } else {
        row.mean = row.median = row.min = row.max = row.latency = NaN;
    }
    if (length > 0.0) {
        row.share = unionLength(spans) / length;
        row.ratePerMinute = row.count / (length / 60.0);
    } else {
        row.share = row.ratePerMinute = NaN;
    }
    return row;
}

QList<OVStatistics::Row> OVStatistics::compute(const OVCodingSnapshot &snapshot, Window window, bool perGroup)
{
    window = resolve(snapshot, window);
    QList<Row> rows;
    for (const OVCodingSnapshot::Coder &coder : snapshot.coders) {
        auto add = [&](const OVCodingSnapshot::Label &label, const OVCodingSnapshot::Group *group) {
            Row row = labelRow(label.segments, window, group ? &group->segmentIds : nullptr);
            row.project = snapshot.projectName;
            row.coder = coder.name;
            row.group = group ? group->name : QString();
            row.label = label.name;
            row.key = label.key;
            rows.append(row);
        };
        for (const OVCodingSnapshot::Label &label : coder.labels)
            add(label, nullptr);
        if (!perGroup)
            continue;
        for (const OVCodingSnapshot::Group &group : coder.groups)
            for (const OVCodingSnapshot::Label &label : coder.labels)
                add(label, &group);
    }
    return rows;
}
