// 10,000 utterances: the import of a CSV transcript (read, parsed, and put into a timeline as one
// history step) and the export of an Excel workbook. Each figure is the median of a few runs, in
// wall time and in process CPU time; the reference is reading the same CSV file's bytes and
// splitting them into lines, so the ratio says how far the import is from the cost of the I/O.
#include "project/history.h"
#include "project/project.h"
#include "project/timeline.h"
#include "transcript/ovtranscriptfile.h"
#include "transcript/ovtranscriptimport.h"

#include "benchtiming.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

using BenchTiming::Timing;
using BenchTiming::median;

OVTranscriptData makeTranscript(int count)
{
    QRandomGenerator rng(12);
    const QStringList speakers { QStringLiteral("Ana"), QStringLiteral("Bob"), QStringLiteral("Čeněk"), QStringLiteral("Dee") };
    const QStringList words { QStringLiteral("well"), QStringLiteral("so"), QStringLiteral("the"), QStringLiteral("recording,"),
        QStringLiteral("\"yes\""), QStringLiteral("we"), QStringLiteral("saw"), QStringLiteral("it"), QStringLiteral("again") };
    OVTranscriptData data;
    double t = 0.0;
    for (int i = 0; i < count; ++i) {
        QStringList text;
        const int n = 4 + int(rng.bounded(12));
        for (int w = 0; w < n; ++w)
            text << words.at(int(rng.bounded(words.size())));
        const double length = 0.5 + rng.bounded(4.0);
        data.rows.append({ speakers.at(i % speakers.size()), t, t + length, text.join(QLatin1Char(' ')) });
        t += length + rng.bounded(0.5);
    }
    return data;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("kavot.*.info=false"));
    QTemporaryDir dir;
    const OVTranscriptData data = makeTranscript(10'000);
    const QString csv = dir.filePath(QStringLiteral("t.csv"));
    if (const OV::Error e = OVTranscriptFile::write(csv, OVTranscriptFile::Csv, data); !e.isOk()) {
        std::fprintf(stderr, "%s\n", qPrintable(e.message()));
        return 1;
    }

    qsizetype sink = 0;
    const Timing reference = median(7, [&] {
        QFile f(csv);
        if (f.open(QIODevice::ReadOnly))
            sink += QString::fromUtf8(f.readAll()).split(QLatin1Char('\n')).size();
    });
    const Timing import = median(7, [&] {
        OVProject::Project project;
        OVProject::Timeline *timeline = project.startNew(QStringLiteral("bench"));
        OVTranscriptData read;
        OVTranscriptReport report;
        QString why;
        OVTranscriptImport::Result result;
        if (!OVTranscriptFile::read(csv, &read, &report).isOk()
            || !OVTranscriptImport::apply(&project, timeline, read, OVTranscriptImport::Utterances, &result, &report, &why)
            || timeline->utterances().size() != 10'000)
            std::fprintf(stderr, "import failed\n");
        sink += result.utterances;
    });
    const Timing xlsx = median(5, [&] {
        if (const OV::Error e = OVTranscriptFile::write(dir.filePath(QStringLiteral("t.xlsx")), OVTranscriptFile::Xlsx, data); !e.isOk())
            std::fprintf(stderr, "%s\n", qPrintable(e.message()));
    });

    std::printf("CSV import, 10,000 utterances: %.2f ms wall, %.2f ms CPU (reading and splitting the file: %.2f ms, ratio %.1f)\n",
        import.wallMs, import.cpuMs, reference.wallMs, import.wallMs / std::max(reference.wallMs, 1e-3));
    std::printf("XLSX export, 10,000 utterances: %.2f ms wall, %.2f ms CPU (ratio to the reference %.1f)\n", xlsx.wallMs,
        xlsx.cpuMs, xlsx.wallMs / std::max(reference.wallMs, 1e-3));
    std::printf("(checksum %lld)\n", qlonglong(sink));
    std::printf("BENCH transcript_import_csv_ms_10k %.2f ms\n", import.wallMs);
    std::printf("BENCH transcript_import_csv_cpu_ms_10k %.2f ms\n", import.cpuMs);
    std::printf("BENCH transcript_import_csv_ratio %.2f x\n", import.wallMs / std::max(reference.wallMs, 1e-3));
    std::printf("BENCH transcript_export_xlsx_ms_10k %.2f ms\n", xlsx.wallMs);
    std::printf("BENCH transcript_export_xlsx_cpu_ms_10k %.2f ms\n", xlsx.cpuMs);
    return 0;
}
