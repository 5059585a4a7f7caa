// Drawing the sound of a long recording: a frame of the waveform strip must cost the same for an
// hour as for a minute, at every zoom, or scrolling a long recording stutters.
// Figures: CPU time of one 1600-pixel frame of a 60-minute track at several zooms, and its ratio
// to the same frame of a 1-minute track (the reference, measured in the same run); the time to
// build the pyramid per hour of audio and the memory its levels take.
#include "widgets/ovwaveformpyramid.h"

#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

namespace {

constexpr int Rate = 22050;
constexpr int BlockSize = 32; // as the timeline's strip uses for a recording read from a file
constexpr int Width = 1600;

double cpuSeconds()
{
    timespec t {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

// Noise whose loudness changes every 50 ms, so that every column has something to draw.
std::vector<qint16> makeTrack(qint64 seconds)
{
    std::vector<qint16> data(static_cast<size_t>(seconds * Rate));
    quint32 state = 12345;
    double gain = 0.5;
    for (size_t i = 0; i < data.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        if (i % (Rate / 20) == 0)
            gain = 0.05 + 0.95 * double(state >> 8) / double(1u << 24);
        data[i] = qint16(int((int(state >> 16) - 32768) * gain));
    }
    return data;
}

// Mean CPU seconds of one frame at `pps`, the frames spread over the track.
double frameSeconds(const OVWaveformPyramid &pyramid, double pps, QImage &image)
{
    const double visible = Width / pps;
    const double span = std::max(0.0, pyramid.duration() - visible);
    constexpr int Frames = 100;
    QPainter p(&image);
    const double start = cpuSeconds();
    for (int f = 0; f < Frames; ++f) {
        p.fillRect(image.rect(), Qt::white);
        pyramid.paint(p, image.rect(), span * f / (Frames - 1), pps, Qt::blue);
    }
    return (cpuSeconds() - start) / Frames;
}

} // namespace

int main(int argc, char **argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);

    const std::vector<qint16> hour = makeTrack(3600);
    const std::vector<qint16> minute = makeTrack(60);
    double t0 = cpuSeconds();
    const OVWaveformPyramid longTrack(hour.data(), qint64(hour.size()), Rate, BlockSize, false);
    const double buildSeconds = cpuSeconds() - t0;
    const OVWaveformPyramid shortTrack(minute.data(), qint64(minute.size()), Rate, BlockSize, false);

    QImage image(Width, 120, QImage::Format_RGB32);
    struct Zoom
    {
        const char *name;
        double pps;
    };
    // From "the whole minute fits" to close enough to see single waves: zooms at which both
    // tracks fill the frame, so that both draw the same columns.
    const Zoom zooms[] = { { "fit_1min", Width / 60.0 }, { "100pps", 100.0 }, { "1000pps", 1000.0 },
                           { "10000pps", 10000.0 } };
    double worstRatio = 0.0;
    double worstLongMs = 0.0;
    std::printf("%-10s %12s %12s %8s\n", "zoom", "1 h ms", "1 min ms", "ratio");
    for (const Zoom &z : zooms) {
        const double a = frameSeconds(longTrack, z.pps, image) * 1000.0;
        const double b = frameSeconds(shortTrack, z.pps, image) * 1000.0;
        std::printf("%-10s %12.3f %12.3f %8.2f\n", z.name, a, b, a / b);
        worstRatio = std::max(worstRatio, a / b);
        worstLongMs = std::max(worstLongMs, a);
    }
    // Each track fitted to the frame, the zoom a user starts at: a column of the hour covers 60
    // times the samples, which costs a few more levels of the pyramid (the cost grows with the
    // logarithm of a column's samples, not with the track's length).
    const double fitHourMs = frameSeconds(longTrack, Width / 3600.0, image) * 1000.0;
    const double fitMinuteMs = frameSeconds(shortTrack, Width / 60.0, image) * 1000.0;
    std::printf("fit each   %12.3f %12.3f %8.2f\n", fitHourMs, fitMinuteMs, fitHourMs / fitMinuteMs);

    std::printf("BENCH waveform_paint_ms_1h_worst %.3f ms\n", std::max(worstLongMs, fitHourMs));
    std::printf("BENCH waveform_paint_ms_1h_fit %.3f ms\n", fitHourMs);
    std::printf("BENCH waveform_paint_ratio_1h_vs_1min %.3f x\n", worstRatio);
    std::printf("BENCH waveform_paint_ratio_fit_1h_vs_fit_1min %.3f x\n", fitHourMs / fitMinuteMs);
    std::printf("BENCH waveform_build_s_per_hour %.3f s\n", buildSeconds);
    std::printf("BENCH waveform_levels_mb_per_hour %.1f MB\n", longTrack.levelBytes() / 1048576.0);
    return 0;
}
