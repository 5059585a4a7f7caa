#pragma once

#include "media/ovmediasource.h"
#include "media/ovvideoconverter.h"
#include "media/ovvideodecoderbase.h"
#include "media/ovvideoplayer.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWaitCondition>

#include <map>

namespace MediaTest {

// Runs the ffmpeg tool with `args` (after "-y -hide_banner -loglevel error") and returns the path of
// `dir/name`, or an empty string (with a warning) when the tool failed.
QString generate(const QString &dir, const QString &name, const QStringList &args);
bool haveFfmpeg();
// Writes `content` to `path`, replacing what was there.
bool writeFile(const QString &path, const QByteArray &content);
// Arguments for generate() written as one line; none of them may contain a space.
QStringList args(const char *line);

// Starts `decoder` and waits until its thread has ended; false on time-out.
bool runToEnd(OVVideoDecoderBase *decoder, int timeoutMs = 60000);

// A private PulseAudio server with a null sink (scripts/null-audio.sh): the real PortAudio path
// plays at the system clock's pace on machines without a sound card and never makes noise on
// machines with one. start() puts its environment in place, which must happen before PortAudio
// first looks at ALSA; the server ends with this process at the latest.
class NullAudioServer
{
public:
    // False with error() set when the server did not come up.
    bool start(const QString &tag);
    void stop();
    QString sink() const { return m_sink; }
    QString error() const { return m_error; }

private:
    QString m_dir;
    QString m_sink;
    QString m_error;
};

// Takes due frames the way the canvas does and remembers what it saw.
class FramePuller : public QObject
{
public:
    explicit FramePuller(OVVideoPlayer *player) : m_player(player)
    {
        m_timer.setInterval(5);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            if (auto f = m_player->takeDueFrame()) {
                last = f;
                ++shown;
            }
            latest = std::max(latest, m_player->position());
        });
        m_timer.start();
    }
    OVPlaybackQueues::VideoFramePtr last;
    int shown = 0;
    double latest = 0.0; // the furthest position seen

private:
    OVVideoPlayer *m_player;
    QTimer m_timer;
};

} // namespace MediaTest

// A decoder that remembers what reached its hooks, optionally converting pictures like the player.
class RecordingDecoder : public OVVideoDecoderBase
{
    Q_OBJECT

public:
    explicit RecordingDecoder(QObject *parent = nullptr) : OVVideoDecoderBase(parent) {}
    ~RecordingDecoder() override;

    // When set, pictures are scaled within this size and kept (the last one only).
    void setMaximumSize(const QSize &size) { m_maxSize = size; }
    // A seek to request from the decoding thread, once, after the first picture at or past `at`
    // (media seconds).
    void setSeekAfterFrame(double target, double at = -1.0)
    {
        m_seekTarget = target;
        m_seekAt = at;
    }

    using OVVideoDecoderBase::openCodecContext;

    mutable QMutex mutex;
    // -- guarded by mutex
    QList<double> videoTimes;
    std::map<int, qint64> audioSamples; // stream index -> converted samples per channel
    QList<double> audioTimesAfterSeek;
    QList<double> videoTimesAfterSeek;
    int seeks = 0;
    bool initCalled = false;
    bool deinitCalled = false;
    bool endOfStream = false;
    int audioCountAtInit = 0;
    OVVideoFrame lastFrame;
    bool converterOk = true;

protected:
    void processVideoFrame(AVFrame *frame) override;
    void processAudioFrame(AVFrame *frame, OVAudioStream &stream) override;
    int initDecoding(AVFormatContext *format, AVStream *videoStream, AVCodecContext *videoCodec,
                     OVAudioStreamMap &audioStreams) override;
    void deinitDecoding() override;
    void endOfStreamReached() override;
    void seekPerformed(double target, int serial) override;

private:
    QSize m_maxSize;
    double m_seekTarget = -1.0;
    double m_seekAt = -1.0;
    bool m_seekRequested = false;
    OVVideoConverter m_converter;
    bool m_afterSeek = false;
};

// A download that stalls: the first `available` bytes of `data` are there, a read of anything later
// waits until it is cancelled. size() reports the whole file, as a download would.
class StallingSource : public OVMediaSource
{
    Q_OBJECT

public:
    StallingSource(const QByteArray &data, qint64 available, qint64 size)
        : m_data(data), m_available(available), m_size(size)
    {
    }
    qint64 size() const override { return m_size; }
    bool read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel) override;
    void wakeReaders() override;
    QString name() const override { return QStringLiteral("stalling"); }

    int waits() const;

private:
    const QByteArray m_data;
    const qint64 m_available;
    const qint64 m_size;
    mutable QMutex m_mutex;
    QWaitCondition m_wake;
    int m_waits = 0;
};
