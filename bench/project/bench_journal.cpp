// What the journal costs a coder: one coded key is one segment added and, at the next press,
// closed; each writes one record straight to the OS. Measured on a label that already holds
// 100,000 segments, against the same model changes without a journal (the reference), with
// the CPU time of the whole run beside the wall-clock figures.
#include "project/label.h"
#include "project/ovprojectjournal.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

using namespace OVProject;

namespace {

struct Figures
{
    double p50 = 0, p99 = 0, max = 0;
};

Figures figures(std::vector<double> us)
{
    std::sort(us.begin(), us.end());
    return { us[us.size() / 2], us[size_t(double(us.size()) * 0.99)], us.back() };
}

double cpuSeconds() { return double(std::clock()) / CLOCKS_PER_SEC; }

// Codes `presses` segments, timing each open and each close (microseconds).
std::vector<double> code(Label *label, int presses, double from)
{
    std::vector<double> us;
    us.reserve(size_t(presses) * 2);
    QElapsedTimer timer;
    double pos = from;
    for (int i = 0; i < presses; ++i) {
        timer.start();
        auto *s = new Segment(pos, Segment::OpenEnd);
        label->addSegment(s);
        us.push_back(double(timer.nsecsElapsed()) / 1000.0);
        timer.start();
        s->setEnd(pos + 1.5);
        us.push_back(double(timer.nsecsElapsed()) / 1000.0);
        pos += 2.0;
    }
    return us;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    Project project;
    project.startNew(QStringLiteral("coder"));
    Label *label = project.timelineGroup()->timelines().first()->labels().first();
    QList<Segment *> existing;
    for (int i = 0; i < 100000; ++i)
        existing.append(new Segment(i * 2.0, i * 2.0 + 1.0));
    label->addSegments(existing);
    label->segmentsInRange(0, 1); // the index is built once, as the first paint would

    const int presses = 5000;
    const double cpu0 = cpuSeconds();
    const Figures bare = figures(code(label, presses, 300000.0));
    const double cpuBare = cpuSeconds() - cpu0;

    OVProjectJournal journal;
    QElapsedTimer startTimer;
    const double cpuStart0 = cpuSeconds();
    startTimer.start();
    if (!journal.start(dir.filePath(QStringLiteral("journal.kvj")), &project, QString(), true).isOk()) {
        std::fprintf(stderr, "journal could not start\n");
        return 1;
    }
    const double startMs = double(startTimer.nsecsElapsed()) / 1e6;
    const double startCpuMs = (cpuSeconds() - cpuStart0) * 1000.0;
    const double cpu1 = cpuSeconds();
    const Figures journaled = figures(code(label, presses, 400000.0));
    const double cpuJournaled = cpuSeconds() - cpu1;

    std::printf("%d presses (open + close) on a label of 100,000 segments\n", presses);
    std::printf("model only:   p50 %.1f us  p99 %.1f us  max %.1f us  cpu %.3f s\n", bare.p50, bare.p99, bare.max, cpuBare);
    std::printf("with journal: p50 %.1f us  p99 %.1f us  max %.1f us  cpu %.3f s\n", journaled.p50, journaled.p99,
                journaled.max, cpuJournaled);
    std::printf("journal start with the whole content (%d segments): %.0f ms, cpu %.0f ms\n", label->segmentCount() - presses,
                startMs, startCpuMs);
    std::printf("BENCH journal_append_us_p99 %.1f us\n", journaled.p99);
    std::printf("BENCH journal_model_only_us_p99 %.1f us\n", bare.p99);
    std::printf("BENCH journal_start_content_ms %.0f ms\n", startMs);
    std::printf("BENCH journal_start_content_cpu_ms %.0f ms\n", startCpuMs);
    return 0;
}
