// Statistics over 100,000 segments, agreement of two coders with 50,000 segments each over one
// hour at 0.1 s, and the raw-data workbook of 100,000 rows. Each figure is the median of a few
// runs, in wall time and in process CPU time; the reference is one pass that only reads every
// segment of the snapshot, so the ratio says how far each computation is from that floor.
#include "analysis/ovagreement.h"
#include "analysis/ovanalysistables.h"
#include "analysis/ovstatistics.h"
#include "project/ovtablewriter.h"

#include "benchtiming.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

OVCodingSnapshot::Coder makeCoder(const QString &name, int labels, int segments, double hour, quint32 seed)
{
    QRandomGenerator rng(seed);
    OVCodingSnapshot::Coder coder;
    coder.name = name;
    for (int l = 0; l < labels; ++l) {
        OVCodingSnapshot::Label label;
        label.name = QStringLiteral("Label %1").arg(l + 1);
        label.key = QChar(char16_t(u'A' + l));
        const int n = segments / labels;
        const double step = hour / n;
        for (int i = 0; i < n; ++i) {
            const double start = i * step + rng.bounded(step * 0.5);
            label.segments.append({QStringLiteral("%1-%2-%3").arg(name).arg(l).arg(i), start,
                start + rng.bounded(step * 0.5), QString()});
        }
        coder.labels.append(label);
    }
    return coder;
}

using BenchTiming::Timing;
using BenchTiming::median;

double peakMb()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const double hour = 3600.0;

    OVCodingSnapshot stats;
    stats.videoLength = hour;
    for (int c = 0; c < 4; ++c)
        stats.coders.append(makeCoder(QStringLiteral("coder%1").arg(c), 25, 25000, hour, 7 + c));

    double sink = 0.0;
    const Timing floor = median(5, [&] {
        for (const auto &coder : stats.coders)
            for (const auto &label : coder.labels)
                for (const auto &s : label.segments)
                    sink += s.end - s.start;
    });
    const Timing statsTime = median(5, [&] { sink += OVStatistics::compute(stats, {}).size(); });

    OVCodingSnapshot pair;
    pair.videoLength = hour;
    pair.coders = {makeCoder(QStringLiteral("a"), 10, 50000, hour, 1), makeCoder(QStringLiteral("b"), 10, 50000, hour, 2)};
    const Timing agreement = median(5, [&] {
        sink += OVAgreement::compute(pair, pair.coders[0], pair.coders[1], {}).kappa;
    });

    QTemporaryDir dir;
    const double memBefore = peakMb();
    const Timing xlsx = median(3, [&] {
        const OV::Error e = OVTableWriter::writeXlsx({OVAnalysisTables::segments(stats)}, dir.filePath(QStringLiteral("raw.xlsx")));
        if (!e.isOk())
            std::fprintf(stderr, "export failed: %s\n", qPrintable(e.message()));
    });
    const double memAfter = peakMb();

    std::printf("statistics, 100,000 segments: %.2f ms wall, %.2f ms CPU (reading them all: %.2f ms, ratio %.1f)\n",
        statsTime.wallMs, statsTime.cpuMs, floor.wallMs, statsTime.wallMs / std::max(floor.wallMs, 1e-3));
    std::printf("agreement, 2 x 50,000 segments, 1 h at 0.1 s: %.2f ms wall, %.2f ms CPU\n", agreement.wallMs,
        agreement.cpuMs);
    std::printf("raw data workbook, 100,000 rows: %.3f s wall, %.3f s CPU; peak memory %.0f MB before, %.0f MB after\n",
        xlsx.wallMs / 1e3, xlsx.cpuMs / 1e3, memBefore, memAfter);
    std::printf("(checksum %g)\n", sink);
    std::printf("BENCH stats_ms_100k %.2f ms\n", statsTime.wallMs);
    std::printf("BENCH stats_cpu_ms_100k %.2f ms\n", statsTime.cpuMs);
    std::printf("BENCH agreement_ms_1h %.2f ms\n", agreement.wallMs);
    std::printf("BENCH agreement_cpu_ms_1h %.2f ms\n", agreement.cpuMs);
    std::printf("BENCH raw_export_xlsx_s_100k %.3f s\n", xlsx.wallMs / 1e3);
    std::printf("BENCH raw_export_xlsx_peak_growth_mb %.1f MB\n", memAfter - memBefore);
    return 0;
}
