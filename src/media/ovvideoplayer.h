#pragma once

#include "media/ovaudioplayerinterface.h"
#include "media/ovplaybackengine.h"
#include "media/ovvideoconverter.h"
#include "media/ovvideodecoderbase.h"

#include <QImage>
#include <QPointer>
#include <QSize>
#include <QTimer>

#include <atomic>
#include <memory>

class OVAudioOut;
class OVFileMediaSource;

// Plays one media source: decodes it on its own thread (the base), converts pictures to RGB
// and sound to 16-bit stereo, keeps both in the engine's queues, and owns the clock that every
// view reads as the current position. Sound goes out through an OVAudioOut that follows the
// player's signals; without a sound device playback runs silently on wall time.
//
// Threads: the public methods are for the thread that owns the player (the GUI thread), except
// where a comment says otherwise. The hooks run on the decoding thread and only talk to the
// engine, whose clock and queues carry their own locks.
//
// States: Stopped → (start) Starting → Playing ⇄ Paused → (end of stream, stop) Stopped.
// stateChanged() is emitted on every change of state().
class OVVideoPlayer : public OVVideoDecoderBase, public OVAudioPlayerInterface
{
    Q_OBJECT

public:
    enum State { Stopped, Starting, Playing, Paused };
    Q_ENUM(State)

    // initDecoding() errors.
    enum PlayerError { ConverterError = FirstSubclassError, ResamplerError = FirstSubclassError + 1 };

    // The picture size decoded frames are scaled within unless set otherwise.
    static constexpr int DefaultMaxFrameWidth = 1920;
    static constexpr int DefaultMaxFrameHeight = 1080;
    // How often the position is written into the project's state.
    static constexpr int PublishIntervalMs = 25;

    explicit OVVideoPlayer(QObject *parent = nullptr);
    ~OVVideoPlayer() override;

    // Stops what plays and starts the file at `path` (asynchronous: initFinished() follows).
    // False when the file cannot be read at all; openError() then holds the message.
    // audioStream >= 0 chooses the stream heard from the start, so the file is not opened twice.
    bool open(const QString &path, int audioStream = -1);
    // Stops and forgets the source.
    void close();
    QString path() const { return m_path; }
    OV::Error openError() const { return m_openError; }

    State state() const;
    // The state last told by stateChanged(); state() may have moved on since on the decoding
    // thread, and another stateChanged() is then on its way.
    State announcedState() const { return m_lastAnnounced; }
    // The current position in seconds from the start (any thread).
    double position() const;
    bool hasVideoStream() const { return m_hasVideo.load(); }
    // Frames per second of the video stream, 0 when unknown (valid after initFinished).
    double frameRate() const { return m_frameRate.load(); }

    void pause();
    void resume();

    // The reciprocal of the playback speed; applied on the decoding thread at the next frame.
    void setTimeFactor(double factor);
    // The factor in effect on the decoding thread, and the one last asked for.
    double timeFactor() const { return m_engine.timeFactor(); }
    double requestedTimeFactor() const { return m_requestedFactor; }
    double speed() const { return 1.0 / timeFactor(); }

    void setVolume(double volume);
    void setMuted(bool muted);
    bool isMuted() const;

    // The nth audio stream to play. A change while playing restarts the source on it and seeks
    // back to where it was.
    void setPreferredAudioStream(int nth);
    int preferredAudioStream() const { return m_preferredAudioStream.load(); }

    // While looping, playback stays within the play range: reaching its end, or being anywhere
    // outside it, goes back to its start. The clock is not touched, so it stays the one time.
    void setPlayRange(double start, double length);
    double playRangeStart() const { return m_engine.playRangeStart(); }
    double playRangeLength() const { return m_engine.playRangeLength(); }
    void setLooping(bool on);
    bool isLooping() const { return m_looping; }

    // Seconds added to the position when the canvas asks for the due frame (default 0).
    void setPresentationOffset(double seconds) { m_presentationOffset = seconds; }
    double presentationOffset() const { return m_presentationOffset; }

    // Pictures are scaled to fit within this size; takes effect at the next start.
    void setMaximumFrameSize(const QSize &size) { m_maxFrameSize = size; }
    QSize maximumFrameSize() const { return m_maxFrameSize; }

    // When false the player never opens a sound device (tests, benchmarks); the next start
    // follows it.
    void setAudioOutputEnabled(bool enabled);
    OVAudioOut *audioOut() const { return m_audioOut.get(); }

    // The frame the canvas should show now, or null when it shows what it has. For a source
    // without pictures, the placeholder picture when nothing newer is due.
    OVPlaybackQueues::VideoFramePtr takeDueFrame();
    // The time (media seconds) of the last picture takeDueFrame() handed out; -1 when none.
    double lastShownTime() const { return m_lastShownTime; }
    OVPlaybackEngine &engine() { return m_engine; }
    const OVPlaybackEngine &engine() const { return m_engine; }

    // While the player plays, positionChanged() reports the clock every PublishIntervalMs, and
    // once more where it pauses or stops; views learn the position from it (through the
    // project's state), never by polling the player.
    void setPublishingPosition(bool on);

    // -- OVAudioPlayerInterface
    QObject *playerObject() override { return this; }
    bool hasAudioStream() const override;
    int audioSampleRate() const override;
    double volume() const override { return m_engine.volume(); }
    // True unless sound should come out: paused, starting or stopped.
    bool isPaused() const override;
    const OVPlaybackClock *playbackClock() const override { return &m_engine.clock(); }

    // The picture shown for sound-only sources.
    static QImage placeholderImage(const QSize &size);

Q_SIGNALS:
    void stateChanged();
    void positionChanged(double secsFromStart);
    // A seek was asked for: the position views should jump to at once.
    void seekPositionChanged(double secsFromStart);

public Q_SLOTS:
    void seek(double secsFromStart, bool autoStart);
    void seek(double secsFromStart);
    // Drops the sound that was played from the queue.
    void removeUsedAudioStreams();
    // Restarts decoding on the source just set.
    void onSourceChanged();

protected:
    void processVideoFrame(AVFrame *frame) override;
    void processAudioFrame(AVFrame *frame, OVAudioStream &stream) override;
    int initDecoding(AVFormatContext *format, AVStream *videoStream, AVCodecContext *videoCodec,
                     OVAudioStreamMap &audioStreams) override;
    void deinitDecoding() override;
    void endOfStreamReached() override;
    void seekPerformed(double target, int serial) override;

private:
    enum RunState { RunStopped, RunStarting, RunRunning };

    void startRun();
    void stopAndWait();
    void setRunState(RunState state);
    // Emits stateChanged() when `now` differs from what was last announced.
    void announceState(State now);
    void onInitFinishedInternal(int code);
    void onThreadFinished();
    void publishPosition();
    void updatePublishing();
    // Seeks to the play range's start when looping and playing outside it; true when it did.
    bool keepInPlayRange();
    // Applies a waiting seek or speed change; true when it did (the frame in hand is stale).
    bool applyPendingSeek();
    bool stopping() const;

    // -- Owner's thread.
    std::unique_ptr<OVAudioOut> m_audioOut;
    OVFileMediaSource *m_fileSource = nullptr;
    QString m_path;
    OV::Error m_openError;
    bool m_publishing = false;
    std::atomic<bool> m_looping = false; // read by the decoding thread at the end of the file
    QTimer m_publishTimer;
    QSize m_maxFrameSize{DefaultMaxFrameWidth, DefaultMaxFrameHeight};
    double m_presentationOffset = 0.0;
    State m_lastAnnounced = Stopped;
    // A run that ended while a seek waited starts again there.
    bool m_restartOnFinish = false;
    quint64 m_placeholderShownSerial = 0;
    double m_lastShownTime = -1.0;
    double m_requestedFactor = 1.0;

    // -- Shared.
    OVPlaybackEngine m_engine;
    std::atomic<int> m_runState{RunStopped};
    std::atomic<bool> m_hasVideo{false};
    std::atomic<double> m_frameRate{0.0};
    std::atomic<int> m_preferredAudioStream{0};
    std::atomic<int> m_audioStreamIndex{-1}; // the stream played, -1 when none
    std::atomic<bool> m_muted{false};
    std::atomic<bool> m_audioOutEnabled{true};

    // -- Written by the owner before start(), read by the decoding thread.
    QSize m_runMaxFrameSize;

    // -- Decoding thread only.
    OVVideoConverter m_converter;
    double m_videoTimeBase = 0.0;
    double m_defaultFrameDuration = 0.0;
    // A seek was handed to the base and not carried out yet: frames still coming from the old
    // position are stale.
    bool m_awaitingSeek = false;
};
