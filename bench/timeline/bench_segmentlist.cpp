// The segment list with 100,000 segments of two coders: the time to build it (model and sorted
// proxy, as the dock shows it) and the time one change takes to reach the sorted rows. A change
// is also timed without the list, so the list's share of it stands beside the absolute figure.
#include "project/history.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "timeline/ovsegmentlistfilter.h"
#include "timeline/ovsegmentlistmodel.h"
#include "timeline/ovtimelinehistory.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

using namespace OVProject;

namespace {
constexpr int SegmentsPerCoder = 50000;
constexpr double VideoLength = 7200.0;
constexpr int Changes = 60;

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

void fill(Project *project)
{
    project->startNew(QStringLiteral("anna"));
    project->createTimeline(QStringLiteral("bert"));
    project->setVideoLength(VideoLength);
    project->state()->setDisplayedTimelineUsers({ QStringLiteral("anna"), QStringLiteral("bert") });
    QRandomGenerator rng(7);
    for (Timeline *t : project->timelineGroup()->timelines()) {
        const int perLabel = SegmentsPerCoder / int(t->labels().size());
        for (Label *l : t->labels()) {
            QList<Segment *> segments;
            for (int i = 0; i < perLabel; ++i) {
                const double start = rng.bounded(VideoLength);
                segments.append(new Segment(start, start + rng.bounded(5.0), BaseNode::newId()));
            }
            l->addSegments(segments);
        }
    }
}

struct Figures
{
    double wallMs = 0;
    double cpuMs = 0;
};

// One edit, one coded segment and one deletion, timed from the request until the list's rows
// are settled; for each kind the median over `Changes` rounds. Returns the slowest kind.
Figures changes(Project *project, OVSegmentListModel *model, const char *what)
{
    OVTimelineHistory requests;
    requests.setProject(project);
    Timeline *anna = project->timelineGroup()->timelines().first();
    Label *label = anna->labels().at(1);
    // Another draw each run: a repeated edit to the same times would change nothing.
    static quint32 seed = 11;
    QRandomGenerator rng(seed++);
    std::vector<double> wall[3];
    std::vector<double> cpu[3];
    auto timed = [&](int kind, const std::function<void()> &change) {
        QElapsedTimer timer;
        const std::clock_t c0 = std::clock();
        timer.start();
        change();
        if (model)
            model->flush();
        wall[kind].push_back(timer.nsecsElapsed() / 1e6);
        cpu[kind].push_back(double(std::clock() - c0) * 1000.0 / CLOCKS_PER_SEC);
    };
    for (int i = 0; i < Changes; ++i) {
        Segment *s = label->segments().at(int(rng.bounded(label->segmentCount())));
        const double start = rng.bounded(VideoLength);
        timed(0, [&] { requests.editSegment(s, start, start + 1.0, QStringLiteral("edited")); });
        Segment *added = nullptr;
        timed(1, [&] { added = requests.addSegment(label, start, start + 2.0); });
        timed(2, [&] { requests.removeSegments({ added }); });
    }
    project->history()->clear();
    Figures slowest;
    const char *kinds[] = { "edit", "add", "delete" };
    for (int k = 0; k < 3; ++k) {
        const Figures f { median(wall[k]), median(cpu[k]) };
        std::printf("%s: one %s %.3f ms (cpu %.3f ms)\n", what, kinds[k], f.wallMs, f.cpuMs);
        if (f.wallMs > slowest.wallMs)
            slowest = f;
    }
    return slowest;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Project project;
    fill(&project);

    changes(&project, nullptr, "warming up");
    const Figures bare = changes(&project, nullptr, "without the list");

    QElapsedTimer timer;
    const std::clock_t c0 = std::clock();
    timer.start();
    OVSegmentListModel model;
    model.setProject(&project);
    OVSegmentListFilter filter;
    filter.setSourceModel(&model);
    filter.sort(OVSegmentListModel::StartColumn);
    const double buildMs = timer.nsecsElapsed() / 1e6;
    const double buildCpuMs = double(std::clock() - c0) * 1000.0 / CLOCKS_PER_SEC;
    std::printf("build of %d rows, sorted by start: %.1f ms (cpu %.1f ms)\n", model.rowCount(), buildMs, buildCpuMs);
    if (filter.rowCount() != 2 * SegmentsPerCoder) {
        std::fprintf(stderr, "the list shows %d rows, not %d\n", filter.rowCount(), 2 * SegmentsPerCoder);
        return 1;
    }

    const Figures listed = changes(&project, &model, "with the list sorted by start");
    std::printf("the slowest kind of change takes %.1f times as long with the list\n", listed.wallMs / std::max(bare.wallMs, 1e-6));

    std::printf("BENCH segment_list_build_ms_100k %.1f ms\n", buildMs);
    std::printf("BENCH segment_list_change_ms_100k %.3f ms\n", listed.wallMs);
    std::printf("BENCH segment_list_change_ratio_100k %.1f x\n", listed.wallMs / std::max(bare.wallMs, 1e-6));
    return 0;
}
