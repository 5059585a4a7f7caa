// Decoding speed of our decoder thread against the ffmpeg tool decoding the same 1080p file with
// the same two threads. Prints "BENCH decode_fps_ratio <ours / tool> x" (1.0 = as fast as the tool),
// and the same with the player's conversion to RGB within 1280 × 720.
#include "media/ovfilemediasource.h"
#include "media/ovvideoconverter.h"
#include "media/ovvideodecoderbase.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/log.h>
}

namespace {

class CountingDecoder : public OVVideoDecoderBase
{
public:
    explicit CountingDecoder(bool convert) : m_convert(convert) {}
    ~CountingDecoder() override
    {
        stop();
        wait();
    }
    int frames = 0; // read after the thread ended

protected:
    int initDecoding(AVFormatContext *, AVStream *stream, AVCodecContext *codec, OVAudioStreamMap &) override
    {
        if (m_convert && codec)
            return m_converter.init(QSize(codec->width, codec->height), codec->pix_fmt, QSize(1280, 720), stream)
                ? FirstSubclassError
                : 0;
        return 0;
    }
    void processVideoFrame(AVFrame *frame) override
    {
        if (m_convert) {
            OVVideoFrame out;
            m_converter.convert(frame, &out);
        }
        ++frames;
    }
    void processAudioFrame(AVFrame *, OVAudioStream &) override {}

private:
    bool m_convert;
    OVVideoConverter m_converter;
};

void quiet(QtMsgType type, const QMessageLogContext &, const QString &msg)
{
    if (type >= QtWarningMsg)
        fprintf(stderr, "%s\n", qPrintable(msg));
}

bool runTool(const QStringList &args, int timeoutMs = 600000)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("ffmpeg"), args);
    const bool ok = p.waitForFinished(timeoutMs) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    if (!ok)
        fprintf(stderr, "ffmpeg failed: %s\n", p.readAll().constData());
    return ok;
}

// Seconds our decoder takes for the whole file, or a negative value on failure.
double timeOurs(const QString &path, bool convert, int *frames)
{
    OVFileMediaSource source(path);
    if (!source.open())
        return -1;
    CountingDecoder decoder(convert);
    decoder.setSource(&source);
    QElapsedTimer timer;
    timer.start();
    decoder.start();
    if (!decoder.wait(600000) || decoder.errorCode() != 0)
        return -1;
    *frames = decoder.frames;
    return timer.nsecsElapsed() / 1e9;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    qInstallMessageHandler(quiet);
    av_log_set_level(AV_LOG_ERROR);
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("hd.mp4"));
    if (!runTool({ "-y", "-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                   "testsrc2=size=1920x1080:rate=25:duration=8", "-c:v", "libx264", "-preset", "veryfast",
                   "-pix_fmt", "yuv420p", file }))
        return 1;

    constexpr int rounds = 3;
    double tool = 1e9;
    double ours = 1e9;
    double oursConverted = 1e9;
    int frames = 0;
    for (int i = 0; i < rounds; ++i) {
        QElapsedTimer timer;
        timer.start();
        if (!runTool({ "-hide_banner", "-loglevel", "error", "-threads", "2", "-i", file, "-f", "null", "-" }))
            return 1;
        tool = std::min(tool, timer.nsecsElapsed() / 1e9);
        const double a = timeOurs(file, false, &frames);
        int converted = 0;
        const double b = timeOurs(file, true, &converted);
        if (a < 0 || b < 0 || frames != 200 || converted != 200) {
            fprintf(stderr, "decoding failed (%d / %d frames)\n", frames, converted);
            return 1;
        }
        ours = std::min(ours, a);
        oursConverted = std::min(oursConverted, b);
    }
    QTextStream out(stdout);
    out << "frames " << frames << ", best of " << rounds << ": tool " << tool << " s, ours " << ours
        << " s, ours with RGB conversion " << oursConverted << " s\n";
    out << "BENCH decode_fps " << frames / ours << " fps\n";
    out << "BENCH decode_fps_ratio " << tool / ours << " x\n";
    out << "BENCH decode_convert_fps_ratio " << tool / oursConverted << " x\n";
    return 0;
}
