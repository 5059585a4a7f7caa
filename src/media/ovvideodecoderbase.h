#pragma once

#include "log/overror.h"
#include "media/ovaudiostream.h"

#include <QMap>
#include <QMutex>
#include <QPointer>
#include <QThread>

#include <atomic>

extern "C" {
#include <libavutil/avutil.h>
}

class OVMediaSource;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVIOContext;
struct AVPacket;

// Opens one media source with FFmpeg on a thread of its own, reads its packets and decodes the video
// stream and every audio stream. It does nothing with the frames: each one goes to a virtual hook
// that a subclass implements, always on the decoding thread.
//
// Life cycle: setSource(), setStartOffset(), start(); then initFinished(code), and when the code is 0
// videoStarted() ... videoFinished(). stop() ends a run from any thread, including a run blocked in a
// source that waits for data. After the thread has finished the decoder may be started again.
class OVVideoDecoderBase : public QThread
{
    Q_OBJECT

public:
    enum ErrorCode {
        NoError = 0,
        NoSourceError = 1,
        AllocationError = 2,
        OpenInputError = 3,
        StreamInfoError = 4,
        NoStreamError = 5,
        DecodeError = 6,
        // stop() came before start-up was done: not a failure the user must hear about, so the
        // message stays empty and errorRaised() is not emitted.
        StoppedError = 7,
        // The source failed while packets were read (not its end).
        ReadError = 8,
        // initDecoding() may return its own codes from here on.
        FirstSubclassError = 100
    };

    // One I/O buffer per decoder.
    static constexpr int IoBufferSize = 1048576;
    // A stream whose codec refuses this many packets in a row, without a frame in between, is not
    // damaged but undecodable. An audio stream beside others is then left out; the last stream that
    // can be played ends the run with DecodeError.
    static constexpr int MaxRefusedPackets = 100;

    explicit OVVideoDecoderBase(QObject *parent = nullptr);
    // Stops and waits for a running thread. A subclass must do the same in its own destructor: by the
    // time this one runs, the subclass's hooks are gone.
    ~OVVideoDecoderBase() override;

    // Not owned; must outlive the run. Set only while the thread is not running.
    void setSource(OVMediaSource *source);
    OVMediaSource *source() const;
    void setStartOffset(double seconds);
    double startOffset() const;

    // Limits of the format probing (bytes, microseconds); 0 keeps FFmpeg's defaults. For callers that
    // read untrusted data and want a bounded start-up.
    void setProbeLimits(qint64 probeSize, qint64 analyzeDurationUs);
    // Stops the read loop after this many packets (0 = no limit); the end then counts as a stop.
    void setPacketLimit(qint64 packets);
    // Threads each codec decodes with (at least 1), from the next start. Two keep up with large
    // pictures; one makes decoding a single-threaded, repeatable run, which a fuzzer needs on a
    // busy machine where every hand-over between codec threads waits for a time slice.
    void setCodecThreads(int threads);

    // Asks for a seek to `seconds` from the start. Thread-safe, also before start() (the run then
    // begins there); carried out on the decoding thread before the next packet: back to the keyframe at or before the target, every codec flushed, and
    // frames earlier than the target dropped before they reach the hooks.
    void requestSeek(double seconds);
    // Increases with each seek carried out; frames made after a seek carry the new value.
    int seekSerial() const;
    // True from requestSeek() until the decoding thread picks the request up (waits that hold the
    // decoding thread, such as a throttle, should end when this turns true).
    bool isSeekPending() const;

    // The duration in seconds (container duration less the start offset), valid after initFinished.
    double duration() const;
    // The container's first timestamp in seconds, valid after initFinished. Positions count from it:
    // an MPEG program stream that starts at 0.5 s shows its first picture at 0.
    double containerStartTime() const { return m_containerStart.load(); }
    // Packets the codecs refused and that were skipped in the current or last run.
    qint64 skippedPackets() const { return m_skippedPackets.load(); }
    // The last error: 0 and empty while none. Valid once initFinished or videoFinished was emitted.
    // When errorRaised() was emitted, the message names the source and the reason.
    OV::Error lastError() const;
    int errorCode() const;

    bool shouldStop() const { return m_shouldStop.load(); }
    bool isDecoding() const { return m_decoding.load(); }
    bool isDecodingFinished() const { return m_finished.load(); }

    // Known after start-up.
    bool hasVideo() const { return m_videoStreamIndex >= 0; }
    int videoStreamIndex() const { return m_videoStreamIndex; }
    int audioStreamCount() const { return m_audioStreamCount.load(); }
    // Stream index -> sample rate of every opened audio stream; safe from any thread, valid from
    // initFinished() until the next start.
    QMap<int, int> audioSampleRates() const;

Q_SIGNALS:
    void sourceChanged();
    void initFinished(int errorCode);
    void videoStarted();
    void videoFinished();
    void stopRequested();
    void waitingOnData();
    void dataRetrieved();
    void errorRaised();
    void completelyCached(const QString &cachefilename);

public Q_SLOTS:
    void stop();
    void onFinished();

protected:
    void run() override;

    // -- Hooks, all called on the decoding thread.
    // One decoded picture whose time is not earlier than a pending seek target. The frame is
    // released after the call.
    virtual void processVideoFrame(AVFrame *frame) = 0;
    // One decoded audio frame of the stream described by `stream`.
    virtual void processAudioFrame(AVFrame *frame, OVAudioStream &stream) = 0;
    // Called once the streams are open; 0 lets decoding start, anything else ends the run with that
    // error code (set a message with setError() first). `videoCodec` is null without video.
    virtual int initDecoding(AVFormatContext *format, AVStream *videoStream, AVCodecContext *videoCodec,
                             OVAudioStreamMap &audioStreams);
    // Called once at the end of every run, also when start-up failed before initDecoding().
    virtual void deinitDecoding();
    // Called only when the packets ran out without a stop request.
    virtual void endOfStreamReached();
    // Called after a seek was carried out and before any frame of the new position, so queued
    // frames can be thrown away.
    virtual void seekPerformed(double target, int serial);

    // The time of a frame in seconds from the start: best-effort timestamp × time base − the
    // container's start time − start offset. NaN when the frame carries no timestamp.
    double frameTime(const AVFrame *frame, double timeBase) const;
    double videoTimeBase() const { return m_videoTimeBase; }

    // Chooses and opens the stream of `type`. For audio the `nth` audio stream, or the first one when
    // there are fewer; the audio count is recorded. Returns 0 or a negative FFmpeg error.
    int openCodecContext(int *streamIndex, AVCodecContext **codec, AVFormatContext *format, AVMediaType type,
                         int nth);

    void setError(int code, const QString &message);

private:
    struct IoContext
    {
        OVMediaSource *source = nullptr;
        qint64 position = 0;
        const std::atomic<bool> *stop = nullptr;
    };

    static int readCallback(void *opaque, uint8_t *buf, int size);
    static int64_t seekCallback(void *opaque, int64_t offset, int whence);
    static int interruptCallback(void *opaque);

    int startUp();
    void readLoop();
    // Gives the decoders' held-back last frames to the hooks at the end of the file; false when
    // decoding failed (a stream whose every packet was refused has not been played).
    bool drainAtEnd();
    void performSeek(double target);
    // Positions the demuxer `margin` seconds before `target` and readies the codecs for frames
    // from `target` on.
    void seekTo(double target, double margin);
    // Sends one packet (null = drain) and hands every frame it yields to its hook. A packet the codec
    // refuses is skipped; false only when decoding cannot go on, with the error stored.
    bool decodePacket(AVCodecContext *codec, const AVPacket *packet, OVAudioStream *audio);
    // Counts a refusal of the codec of `audio` (null: video); false when it ends decoding.
    bool packetRefused(int err, OVAudioStream *audio);
    bool decodingFailed(int err, bool video);
    // Appends the source to a stored message that does not name it yet.
    void nameSourceInError();
    void deliverFrame(AVFrame *frame, OVAudioStream *audio);
    void closeAll();
    QString sourceName() const;

    // -- Set from the owning thread while the decoding thread is not running.
    QPointer<OVMediaSource> m_sourceGuard;
    OVMediaSource *m_file = nullptr;
    double m_startOffset = 0.0;
    qint64 m_probeSize = 0;
    qint64 m_analyzeDuration = 0;
    qint64 m_packetLimit = 0;
    int m_codecThreads = 2;

    // -- Flags shared between threads.
    std::atomic<bool> m_shouldStop { false };
    std::atomic<bool> m_finished { false };
    std::atomic<bool> m_decoding { false };
    std::atomic<int> m_errorCode { 0 };
    std::atomic<int> m_audioStreamCount { 0 };
    std::atomic<int> m_seekSerial { 0 };
    std::atomic<double> m_containerStart { 0.0 };
    std::atomic<qint64> m_skippedPackets { 0 };

    mutable QMutex m_mutex;
    // -- Guarded by m_mutex.
    QString m_errorMessage;
    QMap<int, int> m_audioSampleRates;
    double m_pendingSeek = -1.0;
    double m_duration = 0.0;

    // -- Decoding thread only.
    AVFormatContext *m_formatContext = nullptr;
    AVIOContext *m_ioContext = nullptr;
    IoContext m_io;
    std::atomic<int> m_videoStreamIndex { -1 };
    AVCodecContext *m_videoCodec = nullptr;
    double m_videoTimeBase = 0.0;
    double m_videoDropBefore = -1.0;
    int m_videoRefusedInARow = 0;
    bool m_videoDecodedAny = false;
    int m_lastRefusal = 0;
    double m_videoFrameDuration = 0.1;
    // The seek carried out last, and whether its first picture still has to show that it landed
    // in time.
    double m_seekTarget = -1.0;
    double m_seekFrom = 0.0;
    int m_seekRetries = 0;
    bool m_checkSeekLanding = false;
    bool m_seekLandedLate = false;
    AVFrame *m_frame = nullptr;
    OVAudioStreamMap m_audioStreams;
};
