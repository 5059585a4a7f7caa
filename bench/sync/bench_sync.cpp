// Synchronising an hour: a generated 60-minute pair whose secondary starts 7.3 s into the scene,
// runs 50 ppm slow (its clock counts 1 s while the scene plays 1.00005 s), is low-passed and noisy.
// Figures: search time per hour of primary and WAV loading time per hour of audio (CPU, the
// figure that does not depend on what else the machine runs, and wall), the error of every point
// against the truth, and the peak resident memory of the whole run.
// The pair is made with the ffmpeg tool once and kept in the build directory.
#include "sync/ovsync.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <vector>

namespace {

constexpr double SceneRate = 20000.0; // 50 ppm of it is one whole sample per second
constexpr double Start = 7.3;
constexpr double Drift = 1.0 / SceneRate;
constexpr int Seconds = 3600;

double cpuSeconds()
{
    timespec t {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

bool ffmpeg(const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.start(QStringLiteral("ffmpeg"), QStringList { QStringLiteral("-y"), QStringLiteral("-hide_banner"),
                                                    QStringLiteral("-loglevel"), QStringLiteral("error") }
                                          + args);
    return p.waitForFinished(-1) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

// Pink noise whose loudness jumps every 50 ms, like a room full of talk, over a melody on an
// irregular grid: nothing in it repeats, as nothing in a real recording does.
bool makePair(const QString &dir, QString *primary, QString *secondary)
{
    QDir().mkpath(dir);
    *primary = dir + QStringLiteral("/primary_60min.wav");
    *secondary = dir + QStringLiteral("/secondary_60min_50ppm.wav");
    if (QFileInfo::exists(*primary) && QFileInfo::exists(*secondary))
        return true;
    const QString scene = dir + QStringLiteral("/scene.wav");
    std::fprintf(stderr, "generating the 60-minute pair in %s (once)\n", qPrintable(dir));
    const int sceneSeconds = Seconds + 20;
    const QString graph = QStringLiteral(
                              "anoisesrc=c=pink:r=%1:d=%2:seed=5:a=0.5,volume='0.05+0.95*random(0)':eval=frame[n];"
                              "aevalsrc=exprs='0.1*sin(2*PI*(196+49*floor(mod(t*1.37,5)))*t)':s=%1:d=%2[m];"
                              "[n][m]amix=inputs=2:normalize=0[out]")
                              .arg(SceneRate)
                              .arg(sceneSeconds);
    if (!ffmpeg({ QStringLiteral("-filter_complex"), graph, QStringLiteral("-map"), QStringLiteral("[out]"),
                  QStringLiteral("-ac"), QStringLiteral("1"), scene }))
        return false;
    const QString primaryChain = QStringLiteral("atrim=end=%1,aresample=22050").arg(Seconds);
    const QString secondaryChain = QStringLiteral(
                                       "[0:a]atrim=start_sample=%1,asetpts=PTS-STARTPTS,asetrate=%2,aresample=22050,"
                                       "lowpass=f=5000,atrim=end=%3[s];"
                                       "anoisesrc=c=white:a=0.05:seed=9:r=22050[w];[s][w]amix=inputs=2:duration=first:"
                                       "normalize=0[out]")
                                       .arg(qint64(Start * SceneRate))
                                       .arg(SceneRate + 1)
                                       .arg(Seconds - 20);
    const bool ok = ffmpeg({ QStringLiteral("-i"), scene, QStringLiteral("-af"), primaryChain, *primary })
        && ffmpeg({ QStringLiteral("-i"), scene, QStringLiteral("-filter_complex"), secondaryChain, QStringLiteral("-map"),
                    QStringLiteral("[out]"), *secondary });
    QFile::remove(scene);
    return ok;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QString primaryPath, secondaryPath;
    if (!makePair(QStringLiteral(KAVOT_BENCH_CACHE), &primaryPath, &secondaryPath)) {
        std::fprintf(stderr, "bench_sync: could not generate the pair\n");
        return 1;
    }

    OVSamples primary, secondary;
    QElapsedTimer wall;
    wall.start();
    double cpu = cpuSeconds();
    if (!loadWavSamples(primaryPath, primary) || !loadWavSamples(secondaryPath, secondary)) {
        std::fprintf(stderr, "bench_sync: could not load the pair\n");
        return 1;
    }
    const double loadCpu = cpuSeconds() - cpu;
    const double loadWall = wall.elapsed() / 1000.0;
    const double loadedHours = (primary.duration() + secondary.duration()) / 3600.0;
    const double primaryHours = primary.duration() / 3600.0;

    wall.restart();
    cpu = cpuSeconds();
    const OVSync::Result result = OVSync::autoSync(primary, secondary);
    const double searchCpu = cpuSeconds() - cpu;
    const double searchWall = wall.elapsed() / 1000.0;

    std::vector<double> errors;
    const double rate = primary.sampleRate;
    for (const OVSync::SyncInfo &p : result.points) {
        const double truth = Start + p.secondaryPos / rate * (1.0 + Drift);
        errors.push_back(std::fabs(p.primaryPos / rate - truth) * 1000.0);
    }
    std::sort(errors.begin(), errors.end());
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);

    std::printf("pair: %.0f s primary, %.0f s secondary at %d Hz\n", primary.duration(), secondary.duration(),
                primary.sampleRate);
    std::printf("load: %.2f s wall, %.2f s CPU for %.2f h of audio\n", loadWall, loadCpu, loadedHours);
    std::printf("search: %.2f s wall, %.2f s CPU; %d points; start %.4f s (truth %.4f), drift %.1f ppm (truth %.1f)\n",
                searchWall, searchCpu, int(result.points.size()), result.fit.secondaryStart(), Start,
                result.fit.driftPpm(), (1.0 / (1.0 + Drift) - 1.0) * 1e6);
    for (qsizetype i = 0; i < result.points.size(); ++i)
        std::printf("  point at %8.2f s: coefficient %.3f\n", result.points[i].primaryPos / rate,
                    result.points[i].coefficient);
    if (errors.empty()) {
        std::fprintf(stderr, "bench_sync: no sync point found\n");
        return 1;
    }
    std::printf("BENCH sync_search_s_per_hour %.3f s\n", searchCpu / primaryHours);
    std::printf("BENCH sync_search_wall_s_per_hour %.3f s\n", searchWall / primaryHours);
    std::printf("BENCH sync_error_ms_median %.4f ms\n", errors[errors.size() / 2]);
    std::printf("BENCH sync_error_ms_worst %.4f ms\n", errors.back());
    std::printf("BENCH samples_load_s_per_hour %.3f s\n", loadCpu / loadedHours);
    std::printf("BENCH samples_load_wall_s_per_hour %.3f s\n", loadWall / loadedHours);
    std::printf("BENCH sync_peak_mb %.1f MB\n", usage.ru_maxrss / 1024.0);
    return 0;
}
