// The player on a 10-minute 1080p30 H.264 file with a keyframe every 10 seconds:
//  - seek latency: from seek(t, false) to the first picture at or after t being queued, for 50
//    random targets, against the ffmpeg tool producing one frame at the same targets
//    (ffmpeg -ss t -i F -frames:v 1 -f null -, less its start-up measured at t = 0);
//  - playback cost: CPU time of this process per second of media while the player panel plays
//    for about 20 s at 1x and at 2x (decoding, conversion and the canvas), pictures shown against
//    pictures due, and the peak memory.
// KAVOT_BENCH_PLAYER_FILE=<path> uses an existing file instead of generating one.
#include "app/ovplayercanvas.h"
#include "app/ovplayerpanel.h"
#include "media/ovvideoplayer.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

void quiet(QtMsgType type, const QMessageLogContext &, const QString &msg)
{
    if (type >= QtWarningMsg)
        fprintf(stderr, "%s\n", qPrintable(msg));
}

double cpuSeconds()
{
    rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double peakMemoryMb()
{
    rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_maxrss) / 1024.0;
}

double percentile(std::vector<double> v, double p)
{
    if (v.empty())
        return 0.0;
    std::sort(v.begin(), v.end());
    const double at = p * double(v.size() - 1);
    const size_t lo = size_t(at);
    const size_t hi = std::min(lo + 1, v.size() - 1);
    return v[lo] + (v[hi] - v[lo]) * (at - double(lo));
}

bool waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        QThread::usleep(500);
    }
    return true;
}

double toolMs(const QString &file, double at)
{
    QProcess p;
    QElapsedTimer t;
    t.start();
    p.start(QStringLiteral("ffmpeg"), {QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                                       QStringLiteral("-ss"), QString::number(at, 'f', 3), QStringLiteral("-i"), file,
                                       QStringLiteral("-frames:v"), QStringLiteral("1"), QStringLiteral("-f"),
                                       QStringLiteral("null"), QStringLiteral("-")});
    p.waitForFinished(120000);
    return double(t.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
    QApplication app(argc, argv);
    qInstallMessageHandler(quiet);

    QTemporaryDir dir;
    QString file = qEnvironmentVariable("KAVOT_BENCH_PLAYER_FILE");
    if (file.isEmpty()) {
        file = dir.filePath(QStringLiteral("bench-1080p30.mp4"));
        fprintf(stdout, "generating %s (10 min 1080p30, keyframe every 10 s)\n", qPrintable(file));
        fflush(stdout);
        QProcess gen;
        gen.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        gen.start(QStringLiteral("ffmpeg"),
                  {QStringLiteral("-y"), QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                   QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                   QStringLiteral("testsrc2=size=1920x1080:rate=30:duration=600"), QStringLiteral("-f"),
                   QStringLiteral("lavfi"), QStringLiteral("-i"),
                   QStringLiteral("sine=frequency=440:sample_rate=48000:duration=600"), QStringLiteral("-c:v"),
                   QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-crf"),
                   QStringLiteral("30"), QStringLiteral("-g"),
                   QStringLiteral("300"), QStringLiteral("-keyint_min"), QStringLiteral("300"), QStringLiteral("-sc_threshold"),
                   QStringLiteral("0"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"), QStringLiteral("-c:a"),
                   QStringLiteral("aac"), QStringLiteral("-b:a"), QStringLiteral("96k"), QStringLiteral("-shortest"), file});
        if (!gen.waitForFinished(-1) || gen.exitCode() != 0) {
            fprintf(stderr, "could not generate the test file\n");
            return 1;
        }
    }

    OVPlayerPanel panel;
    panel.resize(1280, 760);
    panel.show();
    OVVideoPlayer *player = panel.player();
    if (!panel.openMedia(file) || !waitFor([&] { return player->state() == OVVideoPlayer::Playing; }, 60000)) {
        fprintf(stderr, "the player did not start\n");
        return 1;
    }
    const double length = player->duration();
    fprintf(stdout, "file: %.1f s, canvas: %s\n", length, panel.canvas()->usesOpenGL() ? "OpenGL" : "raster");

    // -- Seek latency
    QRandomGenerator rng(20260101);
    std::vector<double> targets;
    for (int i = 0; i < 50; ++i)
        targets.push_back(rng.bounded(std::max(1.0, length - 15.0)));
    OVPlaybackQueues &queues = player->engine().queues();
    std::vector<double> ours;
    for (double t : targets) {
        QElapsedTimer timer;
        timer.start();
        player->seek(t, false);
        // The seek empties the queue; the first picture queued after it is at or past t.
        const bool ok = waitFor([&] { return queues.videoFrameCount() > 0 && !player->engine().clock().isSeekPending(); },
                                60000);
        const double ms = double(timer.nsecsElapsed()) / 1e6;
        if (!ok) {
            fprintf(stderr, "seek to %.3f timed out\n", t);
            return 1;
        }
        const OVPlaybackQueues::Span span = queues.videoSpan();
        if (span.oldest + 1e-6 < t)
            fprintf(stderr, "seek to %.3f queued a picture at %.3f\n", t, span.oldest);
        ours.push_back(ms);
        waitFor([&] { return player->state() == OVVideoPlayer::Paused; }, 60000);
    }

    std::vector<double> startups;
    for (int i = 0; i < 5; ++i)
        startups.push_back(toolMs(file, 0.0));
    const double startup = percentile(startups, 0.5);
    std::vector<double> tool;
    for (double t : targets)
        tool.push_back(std::max(1.0, toolMs(file, t) - startup));

    const double oursMedian = percentile(ours, 0.5);
    const double toolMedian = percentile(tool, 0.5);
    fprintf(stdout, "seek: ours median %.1f ms p95 %.1f ms; tool median %.1f ms p95 %.1f ms (start-up %.1f ms)\n",
            oursMedian, percentile(ours, 0.95), toolMedian, percentile(tool, 0.95), startup);

    // -- Playback cost
    auto playFor = [&](double factor, double from, int wallMs, double *cpuPerSecond, quint64 *due, quint64 *shown,
                       quint64 *skipped) {
        player->setTimeFactor(factor);
        player->seek(from, true);
        waitFor([&] {
            return player->state() == OVVideoPlayer::Playing && player->engine().clock().timeFactor() == factor
                   && player->engine().clock().hasOrigin() && !player->engine().clock().isSeekPending();
        },
                60000);
        // Let the queue fill before measuring.
        QTest::qWait(1000);
        const double p0 = player->position();
        const double c0 = cpuSeconds();
        const quint64 taken0 = panel.canvas()->framesTaken();
        const quint64 skipped0 = queues.videoFramesSkipped();
        QTest::qWait(wallMs);
        const double p1 = player->position();
        const double c1 = cpuSeconds();
        *cpuPerSecond = (c1 - c0) / std::max(1e-3, p1 - p0);
        *due = quint64(std::llround((p1 - p0) * player->frameRate()));
        *shown = panel.canvas()->framesTaken() - taken0;
        *skipped = queues.videoFramesSkipped() - skipped0;
        fprintf(stdout, "play at %.1fx: %.2f media s, cpu %.3f s per media s, pictures due %llu shown %llu skipped %llu\n",
                1.0 / factor, p1 - p0, *cpuPerSecond, (unsigned long long)*due, (unsigned long long)*shown,
                (unsigned long long)*skipped);
    };
    double cpu1 = 0, cpu2 = 0;
    quint64 due1 = 0, shown1 = 0, skipped1 = 0, due2 = 0, shown2 = 0, skipped2 = 0;
    playFor(1.0, 30.0, 20000, &cpu1, &due1, &shown1, &skipped1);
    playFor(0.5, 120.0, 20000, &cpu2, &due2, &shown2, &skipped2);
    const qint64 dropped2 = qint64(due2) > qint64(shown2) ? qint64(due2) - qint64(shown2) : 0;

    fprintf(stdout, "BENCH seek_ms_median %.1f ms\n", oursMedian);
    fprintf(stdout, "BENCH seek_ms_p95 %.1f ms\n", percentile(ours, 0.95));
    fprintf(stdout, "BENCH seek_latency_ratio %.2f x\n", oursMedian / std::max(1.0, toolMedian));
    fprintf(stdout, "BENCH playback_cpu_per_s_1x %.3f s\n", cpu1);
    fprintf(stdout, "BENCH playback_cpu_per_s_2x %.3f s\n", cpu2);
    fprintf(stdout, "BENCH frames_dropped_2x %lld frames\n", (long long)std::max<qint64>(dropped2, qint64(skipped2)));
    fprintf(stdout, "BENCH playback_peak_memory %.0f MB\n", peakMemoryMb());
    panel.closeMedia();
    return 0;
}
