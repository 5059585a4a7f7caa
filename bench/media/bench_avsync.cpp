// Sound against picture, end to end: a generated clip flashes white and beeps at each whole
// second; the real player plays it through the real canvas and through PortAudio into a null
// sink of a private PulseAudio server. The moment each white picture is painted and the moment
// each beep comes out of the sink's monitor (captured in this process through PortAudio) are
// taken on one clock; the offset is beep − flash (positive: the sound is late).
//
// Printed for 1x and 2x: mean, p95 of the absolute offset, and the drift (slope of the offset
// over the run) in ms a minute.
//
//   bench_avsync [seconds per speed]    (default 600; KAVOT_BENCH_AVSYNC_SECONDS likewise)
#include "app/ovplayercanvas.h"
#include "media/ovaudioout.h"
#include "media/ovaudiosystem.h"
#include "media/ovvideoplayer.h"

#include "../../tests/media/mediatesthelper.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTemporaryDir>
#include <QThread>

#include <portaudio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

double steadyNow()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void quiet(QtMsgType type, const QMessageLogContext &, const QString &msg)
{
    if (type >= QtWarningMsg || msg.startsWith(QLatin1String("AudioOut")))
        fprintf(stderr, "%s\n", qPrintable(msg));
}

// Records the sink's monitor. The callback only stores: when each block arrived (to map sample
// indexes onto the clock) and where a beep begins (a loud sample after a quiet stretch).
struct MonitorCapture
{
    static constexpr int Rate = 48000;
    static constexpr int Frames = 128;
    static constexpr int Threshold = 3000;
    static constexpr double QuietSeconds = 0.15;

    struct Block
    {
        quint64 endIndex;
        double arrived;
    };

    std::vector<Block> blocks;
    std::vector<quint64> onsets;
    std::atomic<std::size_t> blockCount{0};
    std::atomic<std::size_t> onsetCount{0};
    std::atomic<int> overflows{0};
    quint64 index = 0;
    quint64 lastLoud = 0;
    bool everLoud = false;
    PaStream *stream = nullptr;

    explicit MonitorCapture(double seconds)
    {
        blocks.resize(std::size_t(seconds * Rate / Frames * 4) + 1024);
        onsets.resize(std::size_t(seconds * 4) + 64);
    }

    static int callback(const void *input, void *, unsigned long frames, const PaStreamCallbackTimeInfo *,
                        PaStreamCallbackFlags flags, void *user)
    {
        auto *self = static_cast<MonitorCapture *>(user);
        // Lost input shifts the sample indexes: counted, so a run that had it can be told.
        if (flags & paInputOverflow)
            self->overflows.fetch_add(1, std::memory_order_relaxed);
        const double now = steadyNow();
        const auto *in = static_cast<const qint16 *>(input);
        for (unsigned long i = 0; in && i < frames; ++i) {
            const int s = std::max(std::abs(int(in[2 * i])), std::abs(int(in[2 * i + 1])));
            const quint64 at = self->index + i;
            if (s >= Threshold) {
                if (!self->everLoud || at - self->lastLoud > quint64(QuietSeconds * Rate)) {
                    const std::size_t n = self->onsetCount.load(std::memory_order_relaxed);
                    if (n < self->onsets.size()) {
                        self->onsets[n] = at;
                        self->onsetCount.store(n + 1, std::memory_order_release);
                    }
                }
                self->everLoud = true;
                self->lastLoud = at;
            }
        }
        self->index += frames;
        const std::size_t n = self->blockCount.load(std::memory_order_relaxed);
        if (n < self->blocks.size()) {
            self->blocks[n] = Block{self->index, now};
            self->blockCount.store(n + 1, std::memory_order_release);
        }
        return paContinue;
    }

    bool start()
    {
        PaStreamParameters p{};
        p.device = Pa_GetDefaultInputDevice();
        if (p.device == paNoDevice)
            return false;
        p.channelCount = 2;
        p.sampleFormat = paInt16;
        // A small latency on the monitor makes the null sink render in small blocks, so what
        // leaves the monitor is what the sink plays at that moment.
        p.suggestedLatency = 0.005;
        PaError err = Pa_OpenStream(&stream, &p, nullptr, Rate, Frames, paClipOff, &MonitorCapture::callback, this);
        if (err != paNoError) {
            fprintf(stderr, "capture: %s\n", Pa_GetErrorText(err));
            return false;
        }
        return Pa_StartStream(stream) == paNoError;
    }

    void stop()
    {
        if (stream) {
            Pa_StopStream(stream);
            Pa_CloseStream(stream);
            stream = nullptr;
        }
    }

    // When sample `at` left the monitor: the arrival of a block is its last sample's capture
    // plus a varying delay; the smallest (arrival − end / rate) near `at` is the least delayed.
    double timeOf(quint64 at) const
    {
        const std::size_t n = blockCount.load(std::memory_order_acquire);
        const quint64 window = quint64(5 * Rate);
        const quint64 lo = at > window ? at - window : 0;
        const quint64 hi = at + window;
        auto first = std::lower_bound(blocks.begin(), blocks.begin() + n, lo,
                                      [](const Block &b, quint64 v) { return b.endIndex < v; });
        double best = 1e300;
        for (auto it = first; it != blocks.begin() + n && it->endIndex <= hi; ++it)
            best = std::min(best, it->arrived - double(it->endIndex) / Rate);
        return best + double(at) / Rate;
    }
};

// Notes when a white picture reaches the canvas's surface.
class FlashWatcher : public QObject
{
public:
    explicit FlashWatcher(OVPlayerCanvas *canvas) : m_canvas(canvas) {}
    std::vector<double> flashes;

protected:
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() != QEvent::Paint)
            return false;
        const OVPlaybackQueues::VideoFramePtr frame = m_canvas->currentFrame();
        if (!frame || frame.get() == m_last)
            return false;
        m_last = frame.get();
        const QImage image = OVPlayerCanvas::frameImage(*frame);
        if (image.isNull() || qGray(image.pixel(image.width() / 2, image.height() / 2)) < 128)
            return false;
        const double now = steadyNow();
        if (flashes.empty() || now - flashes.back() > 0.2)
            flashes.push_back(now);
        return false;
    }

private:
    OVPlayerCanvas *m_canvas;
    const void *m_last = nullptr;
};

struct Result
{
    int pairs = 0;
    int flashes = 0;
    int beeps = 0;
    double mean = 0;
    double p95 = 0;
    double maxAbs = 0;
    double driftPerMin = 0;
};

Result measure(const QString &file, double factor, double seconds)
{
    Result r;
    MonitorCapture capture(seconds + 10);
    if (!capture.start()) {
        fprintf(stderr, "cannot record the null sink's monitor\n");
        return r;
    }
    OVVideoPlayer player;
    OVPlayerCanvas canvas;
    canvas.resize(320, 240);
    canvas.show();
    FlashWatcher watcher(&canvas);
    for (QWidget *w : canvas.findChildren<QWidget *>())
        w->installEventFilter(&watcher);
    canvas.setPlayer(&player);
    player.setTimeFactor(factor);
    if (!player.open(file)) {
        fprintf(stderr, "cannot open %s\n", qPrintable(file));
        return r;
    }
    QElapsedTimer wall;
    wall.start();
    double latencyMin = 1e9, latencyMax = 0;
    qint64 lastLatencyCheck = 0;
    while (wall.elapsed() < qint64(seconds * 1000)) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::usleep(500);
        if (wall.elapsed() - lastLatencyCheck >= 100 && player.audioOut()->isRunning()) {
            lastLatencyCheck = wall.elapsed();
            const double l = player.audioOut()->outputLatency();
            if (l > 0) {
                latencyMin = std::min(latencyMin, l);
                latencyMax = std::max(latencyMax, l);
            }
        }
    }
    if (latencyMax > 0)
        fprintf(stdout, "  output latency reported: %.1f to %.1f ms\n", latencyMin * 1000, latencyMax * 1000);
    if (OVAudioOut *out = player.audioOut(); out && !out->isOpen())
        fprintf(stderr, "the player played without a sound device\n");
    fprintf(stdout, "  output underflows %llu, capture overflows %d\n",
            (unsigned long long)player.audioOut()->underflows(), capture.overflows.load());
    player.close();
    capture.stop();

    const std::size_t onsetCount = capture.onsetCount.load();
    std::vector<double> beeps;
    for (std::size_t i = 0; i < onsetCount; ++i)
        beeps.push_back(capture.timeOf(capture.onsets[i]));
    const double window = 0.45 * factor;
    std::vector<double> offsets, at;
    for (double f : watcher.flashes) {
        auto it = std::lower_bound(beeps.begin(), beeps.end(), f);
        double best = 1e9;
        if (it != beeps.end())
            best = *it - f;
        if (it != beeps.begin() && std::abs(*(it - 1) - f) < std::abs(best))
            best = *(it - 1) - f;
        if (std::abs(best) < window) {
            offsets.push_back(best * 1000.0);
            at.push_back(f);
        }
    }
    r.flashes = int(watcher.flashes.size());
    r.beeps = int(beeps.size());
    r.pairs = int(offsets.size());
    if (offsets.empty())
        return r;
    double sum = 0;
    std::vector<double> abs;
    for (double o : offsets) {
        sum += o;
        abs.push_back(std::abs(o));
    }
    r.mean = sum / offsets.size();
    std::sort(abs.begin(), abs.end());
    r.p95 = abs[std::min(abs.size() - 1, std::size_t(std::ceil(0.95 * abs.size())) - 1)];
    r.maxAbs = abs.back();
    // Least squares slope of offset over wall time.
    const double t0 = at.front();
    double sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (std::size_t i = 0; i < at.size(); ++i) {
        const double x = (at[i] - t0) / 60.0;
        sx += x;
        sy += offsets[i];
        sxx += x * x;
        sxy += x * offsets[i];
    }
    const double n = double(at.size());
    const double den = n * sxx - sx * sx;
    r.driftPerMin = den > 1e-12 ? (n * sxy - sx * sy) / den : 0.0;
    // The first and the last ten pairs, to see how the offset develops.
    fprintf(stdout, "  offsets (ms) first:");
    for (std::size_t i = 0; i < std::min<std::size_t>(10, offsets.size()); ++i)
        fprintf(stdout, " %+.1f", offsets[i]);
    fprintf(stdout, "\n  offsets (ms) last:");
    for (std::size_t i = offsets.size() > 10 ? offsets.size() - 10 : 0; i < offsets.size(); ++i)
        fprintf(stdout, " %+.1f", offsets[i]);
    fprintf(stdout, "\n");
    return r;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qunsetenv("KAVOT_NO_AUDIO_OUTPUT");
    // The null sink's script lives in the source tree.
    if (qEnvironmentVariableIsEmpty("KAVOT_SOURCE_DIR"))
        qputenv("KAVOT_SOURCE_DIR", KAVOT_SOURCE_DIR);
    QApplication app(argc, argv);
    qInstallMessageHandler(quiet);

    double seconds = 600;
    if (argc > 1)
        seconds = QString::fromLocal8Bit(argv[1]).toDouble();
    else if (qEnvironmentVariableIsSet("KAVOT_BENCH_AVSYNC_SECONDS"))
        seconds = qEnvironmentVariable("KAVOT_BENCH_AVSYNC_SECONDS").toDouble();
    if (!(seconds >= 5)) {
        fprintf(stderr, "usage: bench_avsync [seconds per speed, at least 5]\n");
        return 2;
    }

    MediaTest::NullAudioServer server;
    if (!server.start(QStringLiteral("avsync"))) {
        fprintf(stderr, "%s\n", qPrintable(server.error()));
        return 1;
    }

    if (!OVAudioSystem::waitUntilReady()) {
        fprintf(stderr, "PortAudio does not start: %s\n", qPrintable(OVAudioSystem::unavailableReason()));
        server.stop();
        return 1;
    }
    QTemporaryDir dir;
    const int length = int(std::ceil(2 * seconds)) + 6;
    fprintf(stdout, "generating a %d s clip (white flash and 1 kHz beep at each whole second)\n", length);
    fflush(stdout);
    const QString len = QString::number(length);
    const QString file = MediaTest::generate(
        dir.path(), QStringLiteral("flash-beep.mkv"),
        {QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
         QStringLiteral("color=c=black:s=320x240:r=30:d=%1,"
                        "drawbox=x=0:y=0:w=iw:h=ih:color=white:t=fill:enable='eq(mod(n,30),0)'")
             .arg(len),
         QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
         QStringLiteral("aevalsrc=exprs='if(lt(mod(t,1),0.05),0.5*sin(2*PI*1000*t),0)':s=48000:d=%1").arg(len),
         QStringLiteral("-ac"), QStringLiteral("2"), QStringLiteral("-c:v"), QStringLiteral("libx264"),
         QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-g"), QStringLiteral("30"),
         QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"), QStringLiteral("-c:a"), QStringLiteral("flac")});
    if (file.isEmpty()) {
        server.stop();
        return 1;
    }

    struct Run
    {
        double factor;
        const char *suffix;
        Result r;
    } runs[] = {{1.0, "", {}}, {0.5, "_2x", {}}};
    for (Run &run : runs) {
        fprintf(stdout, "playing at %.0fx for %.0f s\n", 1.0 / run.factor, seconds);
        fflush(stdout);
        run.r = measure(file, run.factor, seconds);
        fprintf(stdout, "  %d beeps, %d flashes, %d paired: mean %+.1f ms, p95 |offset| %.1f ms, max %.1f ms, drift %+.2f ms/min\n",
                run.r.beeps, run.r.flashes, run.r.pairs, run.r.mean, run.r.p95, run.r.maxAbs, run.r.driftPerMin);
        fflush(stdout);
    }
    server.stop();
    bool ok = true;
    for (const Run &run : runs) {
        ok = ok && run.r.pairs > 0;
        printf("BENCH av_offset_ms_mean%s %.1f ms\n", run.suffix, run.r.mean);
        printf("BENCH av_offset_ms_p95%s %.1f ms\n", run.suffix, run.r.p95);
        printf("BENCH av_offset_drift_ms_per_min%s %.2f ms/min\n", run.suffix, run.r.driftPerMin);
    }
    return ok ? 0 : 1;
}
