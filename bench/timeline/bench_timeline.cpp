// Repaint cost of a full timeline at three zooms, and the time from a coding key press to the
// segment in the model, both with 100,000 segments present. Each zoom's repaints alternate with
// repaints of the same widget scrolled past the end (rows empty of segments), so that the ratio
// between the two sees the same load on a shared machine; the thread's CPU time is printed beside
// the wall time.
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinecontrol.h"
#include "timeline/ovtimelinewidget.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QKeyEvent>
#include <QRandomGenerator>
#include <QTest>
#include <QUndoStack>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

using namespace OVProject;

namespace {
constexpr int Labels = 25;
constexpr int SegmentsPerLabel = 4000;
constexpr double VideoLength = 7200.0;

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

Timeline *fill(Project *project)
{
    Timeline *t = project->startNew(QStringLiteral("coder"));
    project->setVideoLength(VideoLength);
    for (int i = int(t->labels().size()); i < Labels; ++i) {
        auto *l = new Label(BaseNode::newId());
        l->setName(QStringLiteral("Label %1").arg(i + 1));
        l->setKey(QChar(char16_t(u'A' + i)));
        l->setColor(QColor::fromHsv((i * 37) % 360, 160, 220));
        t->addLabel(l);
    }
    QRandomGenerator rng(42);
    const double spacing = VideoLength / SegmentsPerLabel;
    for (Label *l : t->labels()) {
        QList<Segment *> segments;
        segments.reserve(SegmentsPerLabel);
        for (int i = 0; i < SegmentsPerLabel; ++i) {
            const double start = i * spacing + rng.bounded(spacing / 2);
            segments.append(new Segment(start, start + 0.2 + rng.bounded(spacing / 3), BaseNode::newId()));
        }
        l->addSegments(segments);
    }
    return t;
}

double threadCpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

struct PaintTimes
{
    double wallMs = 0.0;
    double cpuMs = 0.0;
};

PaintTimes paintOnce(OVTimelineWidget *w, QImage *image)
{
    QElapsedTimer timer;
    const double cpu0 = threadCpuMs();
    timer.start();
    w->render(image);
    return { timer.nsecsElapsed() / 1e6, threadCpuMs() - cpu0 };
}
} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? QByteArray("offscreen") : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &msg) {
        if (type != QtDebugMsg)
            std::fprintf(stderr, "%s\n", qPrintable(msg));
    });

    Project project;
    Timeline *timeline = fill(&project);
    project.state()->setCurrentPos(VideoLength / 2);

    OVLabelingSettings settings;
    settings.setLabelingMode(OVLabelingSettings::DoublePressMode);
    OVTimelineControl control(&settings);
    control.setProject(&project);
    control.resize(1920, 460);
    control.show();
    control.activateWindow();
    if (!QTest::qWaitForWindowActive(&control))
        std::fprintf(stderr, "window did not become active\n");
    OVTimelineWidget *w = control.timelineWidget();
    w->setLabelingEnabled(true);
    QTest::qWait(50);
    if (w->size() != QSize(1920, 400)) {
        // The control's bar and ruler take their share; size the widget itself as measured.
        w->setFixedSize(1920, 400);
        QTest::qWait(50);
    }
    w->updateWaveformsGeometry();
    QImage image(w->size(), QImage::Format_ARGB32_Premultiplied);

    const double area = w->timeAreaWidth();
    struct Zoom
    {
        const char *name;
        double seconds;
    } zooms[] = { { "whole", VideoLength }, { "minute", 60.0 }, { "ten_seconds", 10.0 } };
    double worst = 0.0;
    double worstCpu = 0.0;
    double worstRatio = 0.0;
    double worstCpuRatio = 0.0;
    for (const Zoom &z : zooms) {
        std::vector<double> wall, cpu, emptyWall, emptyCpu;
        for (int i = 0; i < 53; ++i) {
            // The reference: the same zoom scrolled past the end, every row empty.
            w->setPps(area / z.seconds);
            w->setOffset(VideoLength + 100.0);
            const PaintTimes e = paintOnce(w, &image);
            w->setOffset(z.seconds >= VideoLength ? 0.0 : VideoLength / 2 - z.seconds / 2);
            const PaintTimes t = paintOnce(w, &image);
            if (i < 3)
                continue; // warm-up
            emptyWall.push_back(e.wallMs);
            emptyCpu.push_back(e.cpuMs);
            wall.push_back(t.wallMs);
            cpu.push_back(t.cpuMs);
        }
        const double m = median(wall), c = median(cpu), em = median(emptyWall), ec = median(emptyCpu);
        worst = std::max(worst, m);
        worstCpu = std::max(worstCpu, c);
        worstRatio = std::max(worstRatio, em > 0 ? m / em : 0.0);
        worstCpuRatio = std::max(worstCpuRatio, ec > 0 ? c / ec : 0.0);
        std::printf("paint %-12s %dx%d rows=%d median %.3f ms (cpu %.3f ms), empty rows %.3f ms (cpu %.3f ms)\n", z.name,
                    w->width(), w->height(), int(w->labelPainters().size()), m, c, em, ec);
    }
    image.save(QStringLiteral("/tmp/bench_timeline_last.png"));

    // Coding: key event to segment in the model.
    w->setFocus();
    QRandomGenerator rng(7);
    std::vector<double> ms, keyCpu;
    qsizetype before = 0;
    for (const Label *l : timeline->labels())
        before += l->segmentCount();
    QElapsedTimer timer;
    for (int i = 0; i < 1000; ++i) {
        project.state()->setCurrentPos(5.0 + i * (VideoLength - 10.0) / 1000.0);
        const int k = int(rng.bounded(Labels));
        QKeyEvent press(QEvent::KeyPress, Qt::Key_A + k, Qt::NoModifier, QString(QChar(char16_t(u'a' + k))));
        const double cpu0 = threadCpuMs();
        timer.start();
        QApplication::sendEvent(w, &press);
        ms.push_back(timer.nsecsElapsed() / 1e6);
        keyCpu.push_back(threadCpuMs() - cpu0);
        QKeyEvent release(QEvent::KeyRelease, Qt::Key_A + k, Qt::NoModifier, QString(QChar(char16_t(u'a' + k))));
        QApplication::sendEvent(w, &release);
        if (i % 50 == 0)
            QCoreApplication::processEvents();
    }
    qsizetype after = 0;
    for (const Label *l : timeline->labels())
        after += l->segmentCount();
    std::printf("coding: %lld segments before, %lld after, %d undo steps\n", (long long)before, (long long)after, control.undoStack()->count());

    std::printf("BENCH timeline_paint_ms_worst %.3f ms\n", worst);
    std::printf("BENCH timeline_paint_cpu_ms_worst %.3f ms\n", worstCpu);
    std::printf("BENCH timeline_paint_ratio_to_empty %.2f x\n", worstRatio);
    std::printf("BENCH timeline_paint_cpu_ratio_to_empty %.2f x\n", worstCpuRatio);
    std::printf("BENCH coding_key_ms_median %.4f ms\n", median(ms));
    std::printf("BENCH coding_key_cpu_ms_median %.4f ms\n", median(keyCpu));
    return 0;
}
