#include "media/ovvideoplayer.h"

#include "media/ovaudioout.h"
#include "media/ovaudiosystem.h"
#include "media/ovfilemediasource.h"
#include "media/ovmedialogging.h"
#include "media/ovtimestretch.h"

#include <QDebug>
#include <QEventLoop>
#include <QFileInfo>
#include <QFont>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

OVVideoPlayer::OVVideoPlayer(QObject *parent) : OVVideoDecoderBase(parent)
{
    m_audioOut = std::make_unique<OVAudioOut>();
    setAudioOutputEnabled(qEnvironmentVariableIntValue("KAVOT_NO_AUDIO_OUTPUT") != 1);
    connect(this, &QThread::finished, this, &OVVideoPlayer::onThreadFinished);
    connect(this, &OVVideoDecoderBase::sourceChanged, this, &OVVideoPlayer::onSourceChanged);
    m_publishTimer.setInterval(PublishIntervalMs);
    m_publishTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_publishTimer, &QTimer::timeout, this, &OVVideoPlayer::publishPosition);
}

OVVideoPlayer::~OVVideoPlayer()
{
    // The hooks live in this class: the thread must end before they go.
    stop();
    wait();
    m_audioOut->setPlayer(nullptr);
    m_audioOut->close();
    delete m_fileSource;
}

bool OVVideoPlayer::open(const QString &path, int audioStream)
{
    stopAndWait();
    setSource(nullptr);
    delete m_fileSource;
    m_fileSource = nullptr;
    m_path = path;
    m_openError = OV::Error::success();
    auto *source = new OVFileMediaSource(path);
    if (!source->open()) {
        m_openError = OV::Error(NoSourceError, QStringLiteral("Failed to open input\nDetails:\n\t")
                                                   + source->errorString());
        delete source;
        return false;
    }
    m_fileSource = source;
    if (audioStream >= 0)
        m_preferredAudioStream = audioStream;
    // A new file begins at its start and plays, whatever the last one was doing.
    if (m_engine.clock().isSeekPending() || m_engine.isPaused())
        m_engine.seek(0.0, true);
    setSource(source); // sourceChanged() starts the run
    return true;
}

void OVVideoPlayer::close()
{
    stopAndWait();
    setSource(nullptr);
    delete m_fileSource;
    m_fileSource = nullptr;
    m_path.clear();
    m_engine.queues().newSerial();
    m_lastShownTime = -1.0;
}

void OVVideoPlayer::onSourceChanged()
{
    if (!source())
        return;
    if (isRunning())
        stopAndWait();
    startRun();
}

void OVVideoPlayer::startRun()
{
    if (!source() || isRunning())
        return;
    m_restartOnFinish = false;
    m_hasVideo = false;
    m_audioStreamIndex = -1;
    m_runMaxFrameSize = m_maxFrameSize;
    // Sound goes into the device's ring only once the device runs (see onInitFinishedInternal).
    m_engine.queues().setAudioRing(nullptr);
    // A pause belongs to the run that ended (a seek that is to stay paused is not paused yet).
    if (m_engine.isPaused())
        m_engine.resume();
    setRunState(RunStarting);
    start();
}

void OVVideoPlayer::stopAndWait()
{
    m_restartOnFinish = false;
    if (isRunning()) {
        stop();
        wait();
    }
    // The finished() signal is queued; the state must not wait for it.
    setRunState(RunStopped);
}

bool OVVideoPlayer::stopping() const
{
    return shouldStop();
}

OVVideoPlayer::State OVVideoPlayer::state() const
{
    switch (m_runState.load()) {
    case RunStarting:
        return Starting;
    case RunRunning:
        return m_engine.isPaused() ? Paused : Playing;
    default:
        return Stopped;
    }
}

void OVVideoPlayer::setRunState(RunState state)
{
    m_runState = state;
    announceState(this->state());
}

void OVVideoPlayer::announceState(State now)
{
    if (now == m_lastAnnounced)
        return;
    m_lastAnnounced = now;
    updatePublishing();
    Q_EMIT stateChanged();
}

double OVVideoPlayer::position() const
{
    // A run that starts at a seek target (a restart, another audio stream) is there already,
    // and so is one that has ended to be started again there, before the GUI thread hears of
    // the end.
    if (m_runState.load() != RunStopped && !m_engine.clock().isDecoding()) {
        const double target = m_engine.clock().seekTarget();
        if (m_engine.clock().isSeekPending() && target >= 0.0 && target <= OVPlaybackClock::MaxPosition)
            return target;
    }
    // The clock runs on until the last picture's time has passed, up to a frame beyond the end;
    // a key pressed then must not code a time the recording does not have.
    const double p = m_engine.position();
    const double d = duration();
    return d > 0.0 ? std::min(p, d) : p;
}

bool OVVideoPlayer::isPaused() const
{
    return state() != Playing;
}

void OVVideoPlayer::pause()
{
    if (state() != Playing)
        return;
    if (m_engine.pause())
        setRunState(RunRunning);
}

void OVVideoPlayer::resume()
{
    switch (state()) {
    case Paused:
        if (m_engine.resume())
            setRunState(RunRunning);
        break;
    case Stopped:
        // Played to the end (or never started): from the beginning.
        if (source()) {
            m_engine.seek(0.0, true);
            startRun();
        }
        break;
    default:
        break;
    }
}

void OVVideoPlayer::seek(double secsFromStart)
{
    seek(secsFromStart, true);
}

void OVVideoPlayer::seek(double secsFromStart, bool autoStart)
{
    if (!std::isfinite(secsFromStart))
        return;
    secsFromStart = std::max(0.0, secsFromStart);
    m_engine.seek(secsFromStart, autoStart);
    Q_EMIT seekPositionChanged(secsFromStart);
    switch (m_runState.load()) {
    case RunStopped:
        startRun();
        break;
    case RunRunning:
        // A paused player runs until the target's picture is there. The decoding thread may have
        // got there and paused again already; it ran all the same, and whoever waits for the
        // pause to take the new picture must see one.
        announceState(Playing);
        setRunState(RunRunning);
        // A run in its last moments (past the read loop) cannot seek: it starts again there.
        if (isRunning() && isDecodingFinished())
            m_restartOnFinish = true;
        break;
    default:
        break;
    }
}

void OVVideoPlayer::setTimeFactor(double factor)
{
    if (!(factor > 0.0) || factor == m_requestedFactor)
        return;
    m_requestedFactor = factor;
    qCDebug(lcMedia) << "OVVideoPlayer::timeFactor set to:" << factor;
    m_engine.setTimeFactor(factor);
}

void OVVideoPlayer::setVolume(double volume)
{
    volume = std::max(0.0, volume);
    m_engine.setVolume(volume);
    m_audioOut->setGain(volume);
}

void OVVideoPlayer::setMuted(bool muted)
{
    m_muted = muted;
    m_audioOut->setMuted(muted);
}

bool OVVideoPlayer::isMuted() const
{
    return m_muted.load();
}

void OVVideoPlayer::setAudioOutputEnabled(bool enabled)
{
    m_audioOutEnabled = enabled;
    m_audioOut->setPlayer(enabled ? this : nullptr);
    if (!enabled)
        m_audioOut->close();
    // After the output's own slots, so it has tried to open its stream when we look.
    disconnect(this, &OVVideoDecoderBase::initFinished, this, &OVVideoPlayer::onInitFinishedInternal);
    connect(this, &OVVideoDecoderBase::initFinished, this, &OVVideoPlayer::onInitFinishedInternal);
}

void OVVideoPlayer::setPreferredAudioStream(int nth)
{
    qCDebug(lcMedia) << "Setting preffered audio stream index to:" << nth;
    const bool running = m_runState.load() != RunStopped;
    qCDebug(lcMedia) << "Player running:" << running;
    if (nth < 0 || nth == m_preferredAudioStream.load())
        return;
    m_preferredAudioStream = nth;
    if (!running || !source())
        return;
    const double here = position();
    const bool wasPaused = state() == Paused;
    if (isRunning()) {
        QEventLoop loop;
        connect(this, &QThread::finished, &loop, &QEventLoop::quit);
        stop();
        // Our own finished() handler must not restart the old run meanwhile.
        m_restartOnFinish = false;
        if (isRunning())
            loop.exec(QEventLoop::ExcludeUserInputEvents);
        wait();
    }
    setRunState(RunStopped);
    // The new run begins at the position the old one had reached.
    m_engine.seek(here, !wasPaused);
    startRun();
}

void OVVideoPlayer::setPlayRange(double start, double length)
{
    m_engine.setPlayRange(start, length, duration());
    keepInPlayRange();
}

void OVVideoPlayer::setLooping(bool on)
{
    m_looping = on;
    updatePublishing();
    keepInPlayRange();
}

bool OVVideoPlayer::keepInPlayRange()
{
    if (!m_looping || state() != Playing)
        return false;
    const double start = playRangeStart();
    const double pos = position();
    if (pos >= start && pos < start + playRangeLength())
        return false;
    seek(start, true);
    return true;
}

void OVVideoPlayer::removeUsedAudioStreams()
{
    m_engine.pumpAudio();
}

bool OVVideoPlayer::hasAudioStream() const
{
    return m_audioStreamIndex.load() >= 0;
}

int OVVideoPlayer::audioSampleRate() const
{
    const int index = m_audioStreamIndex.load();
    return index >= 0 ? audioSampleRates().value(index, 0) : 0;
}

void OVVideoPlayer::setPublishingPosition(bool on)
{
    m_publishing = on;
    updatePublishing();
}

void OVVideoPlayer::updatePublishing()
{
    // A paused or stopped clock does not move: the position it stopped at is told once, and
    // then nothing ticks until it runs again. Looping needs the same tick: the end of the range
    // is noticed there.
    const bool run = (m_publishing || m_looping) && (m_lastAnnounced == Playing || m_lastAnnounced == Starting);
    if (run && !m_publishTimer.isActive()) {
        m_publishTimer.start();
    } else if (!run && m_publishTimer.isActive()) {
        m_publishTimer.stop();
        publishPosition();
    }
}

void OVVideoPlayer::publishPosition()
{
    keepInPlayRange();
    // Before the read loop runs the clock has nothing to say; the state keeps what it had.
    if (!m_publishing || (!m_engine.clock().isDecoding() && m_runState.load() != RunStarting))
        return;
    Q_EMIT positionChanged(position());
}

QImage OVVideoPlayer::placeholderImage(const QSize &size)
{
    QImage image(size, QImage::Format_RGB888);
    image.fill(QColor(24, 24, 28));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QImage logo(QStringLiteral(":/logo.png"));
    const int side = std::min(size.width(), size.height()) / 3;
    const QRect logoRect((size.width() - side) / 2, size.height() / 2 - side, side, side);
    if (!logo.isNull()) {
        p.drawImage(logoRect, logo.scaled(logoRect.size(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
    } else {
        // A drawn emblem where the application ships no logo: a play triangle in a ring.
        p.setPen(QPen(QColor(220, 220, 230), side / 14.0));
        p.drawEllipse(logoRect.adjusted(side / 10, side / 10, -side / 10, -side / 10));
        QPainterPath tri;
        const QPointF c = QRectF(logoRect).center();
        const double r = side * 0.22;
        tri.moveTo(c.x() - r * 0.6, c.y() - r);
        tri.lineTo(c.x() + r, c.y());
        tri.lineTo(c.x() - r * 0.6, c.y() + r);
        tri.closeSubpath();
        p.fillPath(tri, QColor(220, 220, 230));
    }
    QFont font(QStringLiteral("Arial"));
    font.setPixelSize(std::max(10, size.height() / 18));
    p.setFont(font);
    p.setPen(QColor(220, 220, 230));
    p.drawText(QRect(0, size.height() / 2 + side / 6, size.width(), size.height() / 4),
               Qt::AlignHCenter | Qt::AlignTop, QStringLiteral("Sound only"));
    return image;
}

OVPlaybackQueues::VideoFramePtr OVVideoPlayer::takeDueFrame()
{
    OVPlaybackQueues::VideoFramePtr frame = m_engine.takeDueFrame(m_presentationOffset);
    if (frame)
        m_lastShownTime = frame->time / timeFactor();
    if (frame || m_runState.load() != RunRunning || m_hasVideo.load())
        return frame;
    // Sound only: the placeholder, once per run (it does not change).
    static const QImage picture = placeholderImage(QSize(640, 360));
    auto placeholder = std::make_shared<OVPlaybackQueues::VideoFrame>();
    placeholder->time = position() * timeFactor();
    placeholder->image = picture;
    placeholder->width = picture.width();
    placeholder->height = picture.height();
    placeholder->stride = int(picture.bytesPerLine());
    placeholder->shown = true;
    if (m_placeholderShownSerial == m_engine.queues().serial())
        return nullptr;
    m_placeholderShownSerial = m_engine.queues().serial();
    return placeholder;
}

// ---------------------------------------------------------------------------------------------
// Decoding thread

int OVVideoPlayer::initDecoding(AVFormatContext *, AVStream *videoStream, AVCodecContext *videoCodec,
                                OVAudioStreamMap &audioStreams)
{
    m_awaitingSeek = false;
    if (videoCodec && videoStream) {
        const OV::Error err = m_converter.init(QSize(videoCodec->width, videoCodec->height), videoCodec->pix_fmt,
                                               m_runMaxFrameSize, videoStream);
        if (err) {
            setError(ConverterError, err.message());
            return ConverterError;
        }
        m_videoTimeBase = av_q2d(videoStream->time_base);
        AVRational rate = videoStream->avg_frame_rate;
        if (rate.num <= 0 || rate.den <= 0)
            rate = videoStream->r_frame_rate;
        const double fps = (rate.num > 0 && rate.den > 0) ? av_q2d(rate) : 0.0;
        m_frameRate = fps;
        m_defaultFrameDuration = fps > 0.0 ? 1.0 / fps : 0.04;
    } else {
        m_frameRate = 0.0;
    }

    // Every audio stream is decoded, but only the chosen one is heard.
    int chosen = -1;
    int nth = 0;
    const int wanted = m_preferredAudioStream.load();
    for (auto &entry : audioStreams) {
        if (nth == wanted)
            chosen = entry.first;
        ++nth;
    }
    if (chosen < 0 && !audioStreams.empty())
        chosen = audioStreams.begin()->first;
    if (chosen >= 0) {
        OVAudioStream &stream = audioStreams.at(chosen);
        stream.resampler = std::make_unique<OVAudioResampler>();
        const OV::Error err = stream.resampler->init(stream.codec);
        if (err) {
            setError(ResamplerError, err.message());
            return ResamplerError;
        }
        stream.gain = m_engine.volume();
    }
    // The device scan may still run (it starts with the player). It is waited for here, off the
    // GUI thread: the window stays live, and the run begins with sound or knowingly without.
    if (chosen >= 0 && m_audioOutEnabled.load())
        OVAudioSystem::waitUntilReady(OVAudioSystem::StartWaitMs, [this] { return shouldStop(); });
    m_audioStreamIndex = chosen;
    m_hasVideo = videoCodec != nullptr;
    m_engine.begin(videoCodec != nullptr, startOffset(), nullptr);
    return NoError;
}

void OVVideoPlayer::deinitDecoding()
{
    m_engine.end();
}

void OVVideoPlayer::seekPerformed(double, int)
{
    m_awaitingSeek = false;
}

bool OVVideoPlayer::applyPendingSeek()
{
    return m_engine.applyPendingSeek([this](double target) {
        m_awaitingSeek = true;
        requestSeek(target);
    });
}

void OVVideoPlayer::processVideoFrame(AVFrame *frame)
{
    if (!m_engine.beforeVideoFrame([this] { return stopping(); }))
        return;
    // A request that came while we waited makes this frame stale: carry it out first, so a
    // seek forward never decodes its way there picture by picture.
    if (applyPendingSeek() || m_awaitingSeek)
        return;
    const double seconds = frameTime(frame, m_videoTimeBase);
    if (std::isnan(seconds))
        return;
    const double t = seconds * m_engine.timeFactor();
    double duration = frame->pkt_duration > 0 ? double(frame->pkt_duration) * m_videoTimeBase : 0.0;
    if (duration <= 0.0)
        duration = m_defaultFrameDuration;
    if (!m_engine.keepVideoFrame(t, duration))
        return;

    OVVideoFrame converted;
    if (!m_converter.convert(frame, &converted))
        return;
    OVPlaybackQueues::VideoFrame queued;
    queued.time = t;
    queued.width = converted.image.width();
    queued.height = converted.image.height();
    queued.stride = int(converted.image.bytesPerLine());
    queued.pixelAspect = converted.pixelAspect;
    queued.rotation = converted.rotation;
    queued.image = std::move(converted.image);
    const bool pausedNow = m_engine.queueVideoFrame(std::move(queued));
    applyPendingSeek();
    if (pausedNow)
        QMetaObject::invokeMethod(this, [this] { setRunState(RunState(m_runState.load())); }, Qt::QueuedConnection);
}

void OVVideoPlayer::processAudioFrame(AVFrame *frame, OVAudioStream &stream)
{
    if (!stream.resampler || stream.stream->index != m_audioStreamIndex.load())
        return;
    // Without pictures the sound carries the seeks (with pictures the video hook does).
    if (m_awaitingSeek || (!m_engine.hasVideo() && applyPendingSeek()))
        return;
    if (!m_engine.beforeAudioFrame([this] { return stopping(); }))
        return;
    if (!m_engine.hasVideo() && (applyPendingSeek() || m_awaitingSeek))
        return;
    const double seconds = frameTime(frame, stream.timeBase);
    if (std::isnan(seconds))
        return;
    const double factor = m_engine.timeFactor();
    const double t = seconds * factor;
    const double duration = stream.sampleRate > 0 ? double(frame->nb_samples) / stream.sampleRate : 0.0;
    if (!m_engine.keepAudioFrame(t, duration))
        return;

    std::vector<qint16> converted;
    int frames = 0;
    if (!stream.resampler->convert(frame, converted, &frames) || frames <= 0)
        return;
    OVPlaybackQueues::AudioBuffer buffer;
    buffer.time = t;
    buffer.channels = OVAudioResampler::OutputChannels;
    buffer.sampleRate = stream.sampleRate;
    const int outFrames = OVTimeStretch::outputFrames(frames, factor);
    if (outFrames == frames) {
        buffer.samples = std::move(converted);
    } else {
        buffer.samples.resize(std::size_t(outFrames) * buffer.channels);
        OVTimeStretch::stretch(converted.data(), frames, buffer.channels, buffer.samples.data(), outFrames);
    }
    const bool pausedNow = m_engine.queueAudioBuffer(std::move(buffer));
    if (!m_engine.hasVideo())
        applyPendingSeek();
    if (pausedNow)
        QMetaObject::invokeMethod(this, [this] { setRunState(RunState(m_runState.load())); }, Qt::QueuedConnection);
}

void OVVideoPlayer::endOfStreamReached()
{
    // The packets ran out, but up to two seconds of pictures and sound still wait for their
    // time. The run ends when they have been played, or when a stop or seek comes.
    OVPlaybackClock &clock = m_engine.clock();
    if (!clock.hasOrigin())
        return;
    const OVPlaybackQueues::Span video = m_engine.queues().videoSpan();
    const OVPlaybackQueues::Span audio = m_engine.queues().audioSpan();
    double end = 0.0;
    if (!video.empty)
        end = video.newest + m_defaultFrameDuration * m_engine.timeFactor();
    if (!audio.empty)
        end = std::max(end, audio.newest);
    // A seek onto the last picture that is to stay paused gets no second picture to pause
    // on; without this the run would end and the player would stop instead.
    if ((!video.empty || !audio.empty) && clock.pauseAfterSeekAtEnd(!video.empty ? video.newest : audio.newest))
        QMetaObject::invokeMethod(this, [this] { setRunState(RunState(m_runState.load())); }, Qt::QueuedConnection);
    // While looping, the GUI brings playback back to the range's start; however late its timer
    // fires, the run must still be here to take that seek, or playback would just stop.
    while (!stopping() && !clock.isSeekPending()
           && (clock.isPaused() || clock.clockPosition() < end || m_looping.load())) {
        m_engine.pumpAudio();
        QThread::msleep(OVPlaybackQueues::ThrottleStepMs);
    }
}

void OVVideoPlayer::onInitFinishedInternal(int code)
{
    if (code != NoError) {
        setRunState(RunStopped);
        return;
    }
    // Until now the queues retired sound by the clock. Opening and starting a device takes a
    // while (a sound server can take a second): had the sound gone into the ring meanwhile,
    // the device would start with what was due back then and stay that far behind the picture
    // for the whole run. From now on the ring takes the sound that is due from here on.
    // Without a device the queues go on retiring sound by the clock.
    if (m_audioOutEnabled && m_audioOut->isOpen()) {
        m_audioOut->setMuted(m_muted.load());
        m_engine.queues().setAudioRing(m_audioOut->ring());
    }
    if (m_runState.load() == RunStarting)
        setRunState(RunRunning);
}

void OVVideoPlayer::onThreadFinished()
{
    if (isRunning())
        return;
    const bool restart = m_restartOnFinish || (source() && m_engine.clock().isSeekPending()
                                               && m_runState.load() != RunStopped && !shouldStop());
    setRunState(RunStopped);
    if (restart)
        startRun();
}
