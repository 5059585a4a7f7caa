#include "media/ovvideodecoderbase.h"

#include "media/ovffmpeg.h"
#include "media/ovmedialogging.h"
#include "media/ovmediasource.h"

#include <cmath>
#include <limits>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

namespace {

// A frame this close to the target counts as on it: times are products of doubles.
constexpr double kTimeTolerance = 1e-6;

// How far before the target a seek that landed past it tries again: program streams carry no
// index of keyframes, and decoding from a picture between two of them yields nothing up to the
// next keyframe, which can be seconds past the target. Each retry reaches four times as far.
constexpr double kFirstSeekMargin = 1.0;
constexpr int kSeekRetries = 3;

// Damage comes in bursts; the first refusals of a stream say enough, the rest go to debug output.
constexpr int kLoggedRefusals = 5;

// Errors after which no packet of any stream can be decoded; anything else is the packet's own.
bool endsDecoding(int err)
{
    return err == AVERROR(ENOMEM) || err == AVERROR_BUG || err == AVERROR_BUG2;
}

} // namespace

OVVideoDecoderBase::OVVideoDecoderBase(QObject *parent) : QThread(parent)
{
    connect(this, &QThread::finished, this, &OVVideoDecoderBase::onFinished);
}

OVVideoDecoderBase::~OVVideoDecoderBase()
{
    if (isRunning()) {
        stop();
        wait();
    }
}

void OVVideoDecoderBase::setSource(OVMediaSource *source)
{
    if (isRunning()) {
        qCWarning(lcMedia) << "OVVideoDecoderBase::setSource ignored while decoding" << sourceName();
        return;
    }
    if (m_sourceGuard) {
        disconnect(m_sourceGuard, nullptr, this, nullptr);
    }
    m_file = source;
    m_sourceGuard = source;
    if (source) {
        connect(source, &OVMediaSource::waitingOnData, this, &OVVideoDecoderBase::waitingOnData);
        connect(source, &OVMediaSource::dataRetrieved, this, &OVVideoDecoderBase::dataRetrieved);
        connect(source, &OVMediaSource::completelyCached, this, &OVVideoDecoderBase::completelyCached);
    }
    Q_EMIT sourceChanged();
}

OVMediaSource *OVVideoDecoderBase::source() const
{
    return m_file;
}

void OVVideoDecoderBase::setStartOffset(double seconds)
{
    m_startOffset = seconds;
}

double OVVideoDecoderBase::startOffset() const
{
    return m_startOffset;
}

void OVVideoDecoderBase::setProbeLimits(qint64 probeSize, qint64 analyzeDurationUs)
{
    m_probeSize = probeSize;
    m_analyzeDuration = analyzeDurationUs;
}

void OVVideoDecoderBase::setPacketLimit(qint64 packets)
{
    m_packetLimit = packets;
}

void OVVideoDecoderBase::setCodecThreads(int threads)
{
    m_codecThreads = std::max(1, threads);
}

void OVVideoDecoderBase::requestSeek(double seconds)
{
    QMutexLocker lock(&m_mutex);
    m_pendingSeek = std::max(0.0, seconds);
}

int OVVideoDecoderBase::seekSerial() const
{
    return m_seekSerial.load();
}

QMap<int, int> OVVideoDecoderBase::audioSampleRates() const
{
    QMutexLocker lock(&m_mutex);
    return m_audioSampleRates;
}

bool OVVideoDecoderBase::isSeekPending() const
{
    QMutexLocker lock(&m_mutex);
    return m_pendingSeek >= 0.0;
}

double OVVideoDecoderBase::duration() const
{
    QMutexLocker lock(&m_mutex);
    return m_duration;
}

OV::Error OVVideoDecoderBase::lastError() const
{
    QMutexLocker lock(&m_mutex);
    return OV::Error(m_errorCode.load(), m_errorMessage);
}

int OVVideoDecoderBase::errorCode() const
{
    return m_errorCode.load();
}

void OVVideoDecoderBase::setError(int code, const QString &message)
{
    QMutexLocker lock(&m_mutex);
    m_errorCode = code;
    m_errorMessage = message;
}

void OVVideoDecoderBase::stop()
{
    m_shouldStop = true;
    Q_EMIT stopRequested();
    // A source waiting for downloaded data must notice the flag now, not when the data comes.
    if (OVMediaSource *source = m_sourceGuard.data())
        source->wakeReaders();
}

void OVVideoDecoderBase::onFinished()
{
    // On the owner's thread once the decoding thread has ended, whatever way it ended.
    const OV::Error error = lastError();
    if (error)
        qCInfo(lcMedia) << "Video decoder thread ended with error" << error.code() << error.message();
    else
        qCDebug(lcMedia) << "Video decoder thread ended";
}

int OVVideoDecoderBase::initDecoding(AVFormatContext *, AVStream *, AVCodecContext *, OVAudioStreamMap &)
{
    return NoError;
}

void OVVideoDecoderBase::deinitDecoding() {}

void OVVideoDecoderBase::endOfStreamReached() {}

void OVVideoDecoderBase::seekPerformed(double, int) {}

double OVVideoDecoderBase::frameTime(const AVFrame *frame, double timeBase) const
{
    int64_t ts = frame->best_effort_timestamp;
    if (ts == AV_NOPTS_VALUE)
        ts = frame->pts;
    if (ts == AV_NOPTS_VALUE)
        return std::numeric_limits<double>::quiet_NaN();
    return double(ts) * timeBase - m_containerStart.load() - m_startOffset;
}

QString OVVideoDecoderBase::sourceName() const
{
    return m_file ? m_file->name() : QStringLiteral("(none)");
}

// ---------------------------------------------------------------------------------------------
// Custom I/O: FFmpeg never sees a file name, only these callbacks.

int OVVideoDecoderBase::readCallback(void *opaque, uint8_t *buf, int size)
{
    auto *io = static_cast<IoContext *>(opaque);
    if (io->stop->load())
        return -1;
    if (size <= 0)
        return 0;
    QByteArray out;
    const bool ok = io->source->read(io->position, io->position + size, out, io->stop);
    if (io->stop->load())
        return -1;
    if (!ok || out.isEmpty()) {
        // FFmpeg 5 takes a zero return from a stream as a broken protocol. Short of the end the
        // source has failed (a vanished network drive), which must not pass for the end.
        const qint64 size = io->source->size();
        return size >= 0 && io->position < size ? AVERROR(EIO) : AVERROR_EOF;
    }
    const int count = int(std::min<qint64>(size, out.size()));
    memcpy(buf, out.constData(), size_t(count));
    io->position += count;
    return count;
}

int64_t OVVideoDecoderBase::seekCallback(void *opaque, int64_t offset, int whence)
{
    auto *io = static_cast<IoContext *>(opaque);
    switch (whence & ~AVSEEK_FORCE) {
    case SEEK_SET:
        io->position = offset;
        break;
    case SEEK_CUR:
        io->position += offset;
        break;
    case SEEK_END:
        io->position = io->source->size() + offset;
        break;
    case AVSEEK_SIZE:
        return io->source->size();
    default:
        return -1;
    }
    return io->position;
}

int OVVideoDecoderBase::interruptCallback(void *opaque)
{
    return static_cast<const std::atomic<bool> *>(opaque)->load() ? 1 : 0;
}

// ---------------------------------------------------------------------------------------------

int OVVideoDecoderBase::openCodecContext(int *streamIndex, AVCodecContext **codec, AVFormatContext *format,
                                         AVMediaType type, int nth)
{
    const char *typeName = av_get_media_type_string(type);
    if (!typeName)
        typeName = "unknown";
    *codec = nullptr;
    int index = -1;
    if (type == AVMEDIA_TYPE_AUDIO) {
        int count = 0;
        int first = -1;
        for (unsigned i = 0; i < format->nb_streams; ++i) {
            if (format->streams[i]->codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
                continue;
            if (first < 0)
                first = int(i);
            if (count == nth)
                index = int(i);
            ++count;
        }
        m_audioStreamCount = count;
        if (index < 0)
            index = first;
        if (index < 0) {
            qCDebug(lcMedia) << "Could not find" << typeName << "stream in input file";
            return AVERROR_STREAM_NOT_FOUND;
        }
    } else {
        index = av_find_best_stream(format, type, -1, -1, nullptr, 0);
        if (index < 0) {
            qCDebug(lcMedia) << "Could not find" << typeName << "stream in input file";
            return index;
        }
    }

    AVStream *stream = format->streams[index];
    const AVCodec *decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    if (!decoder) {
        qCWarning(lcMedia) << "Failed to find" << typeName << "codec" << avcodec_get_name(stream->codecpar->codec_id)
                           << "in" << sourceName();
        return AVERROR(EINVAL);
    }
    AVCodecContext *ctx = avcodec_alloc_context3(decoder);
    if (!ctx)
        return AVERROR(ENOMEM);
    int err = avcodec_parameters_to_context(ctx, stream->codecpar);
    if (err >= 0) {
        ctx->pkt_timebase = stream->time_base;
        ctx->thread_count = m_codecThreads;
        // Decoded frames are always reference-counted in this FFmpeg, so no option is needed.
        err = avcodec_open2(ctx, decoder, nullptr);
    }
    if (err < 0) {
        qCWarning(lcMedia) << "Failed to open" << typeName << "codec of" << sourceName() << ffmpegErrorText(err);
        avcodec_free_context(&ctx);
        return err;
    }
    *streamIndex = index;
    *codec = ctx;
    return 0;
}

void OVVideoDecoderBase::run()
{
    m_finished = false;
    m_decoding = false;
    setError(NoError, QString());
    {
        QMutexLocker lock(&m_mutex);
        // A seek requested before start() is kept: it positions the new run before its first frame.
        m_duration = 0.0;
        m_audioSampleRates.clear();
    }

    m_skippedPackets = 0;
    int code = startUp();
    if (code != NoError && code != StoppedError && m_shouldStop.load()) {
        // Whatever failed was cut short by the stop itself.
        qCDebug(lcMedia) << "Should stop is true, line:" << __LINE__ << "start-up ended with" << code;
        code = StoppedError;
        setError(StoppedError, QString());
    }
    if (code == StoppedError) {
        m_errorCode = code;
    } else if (code != NoError) {
        qCWarning(lcMedia) << "Failed to open source:" << sourceName();
        m_errorCode = code;
        nameSourceInError();
        Q_EMIT errorRaised();
    }
    qCInfo(lcMedia) << "Init returned:" << code;
    Q_EMIT initFinished(code);

    if (code == NoError)
        readLoop();

    m_finished = true;
    if (code == NoError && !m_shouldStop.load())
        endOfStreamReached();
    m_decoding = false;
    Q_EMIT videoFinished();
    deinitDecoding();
    closeAll();
    if (m_skippedPackets.load() > 0)
        qCInfo(lcMedia) << "Skipped" << m_skippedPackets.load() << "damaged packets of" << sourceName();
    qCInfo(lcMedia) << "Video decoder finished, src -" << sourceName();
    // The stop and any seek not carried out belonged to this run; the next start() begins afresh. A
    // stop() issued before a start stays set and ends that run at once.
    {
        QMutexLocker lock(&m_mutex);
        m_pendingSeek = -1.0;
    }
    m_shouldStop = false;
}

int OVVideoDecoderBase::startUp()
{
    qCInfo(lcMedia) << "Video Decoder starting, src -" << sourceName();
    m_videoStreamIndex = -1;
    m_audioStreamCount = 0;
    m_videoDropBefore = -1.0;
    m_videoRefusedInARow = 0;
    m_videoDecodedAny = false;
    m_containerStart = 0.0;
    m_checkSeekLanding = false;
    m_seekLandedLate = false;
    if (!m_file) {
        qCWarning(lcMedia) << "m_file is NULL";
        setError(NoSourceError, QStringLiteral("m_file is NULL"));
        return NoSourceError;
    }

    ffmpegSetUp();
    m_formatContext = avformat_alloc_context();
    if (!m_formatContext) {
        qCWarning(lcMedia) << "avformat_alloc_context failed";
        setError(AllocationError, QStringLiteral("avformat_alloc_context failed"));
        return AllocationError;
    }
    auto *buffer = static_cast<unsigned char *>(av_malloc(IoBufferSize));
    if (!buffer) {
        qCWarning(lcMedia) << "av_malloc failed";
        setError(AllocationError, QStringLiteral("av_malloc failed"));
        return AllocationError;
    }
    m_io = IoContext { m_file, 0, &m_shouldStop };
    m_ioContext = avio_alloc_context(buffer, IoBufferSize, 0, &m_io, &OVVideoDecoderBase::readCallback, nullptr,
                                     &OVVideoDecoderBase::seekCallback);
    if (!m_ioContext) {
        av_free(buffer);
        qCWarning(lcMedia) << "avio_alloc_context failed";
        setError(AllocationError, QStringLiteral("avio_alloc_context failed"));
        return AllocationError;
    }

    m_formatContext->pb = m_ioContext;
    m_formatContext->flags |= AVFMT_FLAG_CUSTOM_IO;
    m_formatContext->interrupt_callback.callback = &OVVideoDecoderBase::interruptCallback;
    m_formatContext->interrupt_callback.opaque = &m_shouldStop;
    if (m_probeSize > 0)
        m_formatContext->probesize = m_probeSize;
    if (m_analyzeDuration > 0)
        m_formatContext->max_analyze_duration = m_analyzeDuration;

    int err = avformat_open_input(&m_formatContext, nullptr, nullptr, nullptr);
    if (err < 0) {
        // On failure FFmpeg frees the format context but leaves our I/O context to us.
        QString details = ffmpegErrorText(err);
        qCWarning(lcMedia) << "avformat_open_input failed:" << details;
        // The source knows better than FFmpeg why a file it cannot read has no data.
        if (const QString why = m_file->errorString(); !why.isEmpty())
            details = why;
        setError(OpenInputError, QStringLiteral("Failed to open input\nDetails:\n\t") + details);
        return OpenInputError;
    }

    err = avformat_find_stream_info(m_formatContext, nullptr);
    if (err < 0) {
        qCWarning(lcMedia) << "avformat_find_stream_info failed:" << ffmpegErrorText(err);
        setError(StreamInfoError, QStringLiteral("Failed to decode input streams"));
        return StreamInfoError;
    }
    // Program and transport streams begin where their clock stood (often half a second or more);
    // positions count from the first timestamp, as the duration does.
    if (m_formatContext->start_time != AV_NOPTS_VALUE)
        m_containerStart = double(m_formatContext->start_time) / AV_TIME_BASE;

    int videoIndex = -1;
    if (openCodecContext(&videoIndex, &m_videoCodec, m_formatContext, AVMEDIA_TYPE_VIDEO, 0) >= 0) {
        AVStream *stream = m_formatContext->streams[videoIndex];
        m_videoTimeBase = av_q2d(stream->time_base);
        const AVRational rate = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
        m_videoFrameDuration = rate.num > 0 && rate.den > 0 ? std::clamp(1.0 / av_q2d(rate), 0.001, 1.0) : 0.1;
        m_videoStreamIndex = videoIndex;
    }

    // Opening the audio streams counts them; every nth up to the count is a separate stream.
    int audioIndex = -1;
    AVCodecContext *audioCodec = nullptr;
    if (openCodecContext(&audioIndex, &audioCodec, m_formatContext, AVMEDIA_TYPE_AUDIO, 0) >= 0) {
        auto keep = [this](int index, AVCodecContext *codec) {
            AVStream *stream = m_formatContext->streams[index];
            OVAudioStream &record = m_audioStreams[index];
            record.stream = stream;
            record.codec = codec;
            record.sampleRate = codec->sample_rate;
            record.timeBase = av_q2d(stream->time_base);
        };
        keep(audioIndex, audioCodec);
        for (int nth = 1; nth < m_audioStreamCount.load(); ++nth) {
            audioCodec = nullptr;
            if (openCodecContext(&audioIndex, &audioCodec, m_formatContext, AVMEDIA_TYPE_AUDIO, nth) < 0)
                continue;
            if (m_audioStreams.count(audioIndex)) {
                avcodec_free_context(&audioCodec);
                continue;
            }
            keep(audioIndex, audioCodec);
        }
    }
    qCInfo(lcMedia) << "Audio streams count:" << m_audioStreamCount.load();

    if (m_videoStreamIndex < 0 && m_audioStreams.empty()) {
        qCWarning(lcMedia) << "Could not find audio or video stream in the input, aborting. Filename:" << sourceName();
        setError(NoStreamError, QStringLiteral("Failed to open video or audio stream"));
        return NoStreamError;
    }

    double duration = 0.0;
    if (m_formatContext->duration != AV_NOPTS_VALUE && m_formatContext->duration > 0)
        duration = double(m_formatContext->duration) / 1000000.0;
    {
        QMutexLocker lock(&m_mutex);
        m_duration = duration - m_startOffset;
        for (const auto &entry : m_audioStreams)
            m_audioSampleRates.insert(entry.first, entry.second.sampleRate);
    }

    AVStream *videoStream = m_videoStreamIndex >= 0 ? m_formatContext->streams[m_videoStreamIndex] : nullptr;
    const int code = initDecoding(m_formatContext, videoStream, m_videoCodec, m_audioStreams);
    if (code != NoError) {
        QString message = lastError().message();
        if (message.isEmpty())
            message = QStringLiteral("Failed to initialise decoding");
        setError(code, message);
        return code;
    }
    av_format_inject_global_side_data(m_formatContext);
    return NoError;
}

void OVVideoDecoderBase::readLoop()
{
    m_decoding = true;
    Q_EMIT videoStarted();

    AVPacket *packet = av_packet_alloc();
    m_frame = av_frame_alloc();
    if (!packet || !m_frame) {
        av_packet_free(&packet);
        setError(AllocationError, QStringLiteral("av_frame_alloc failed"));
        Q_EMIT errorRaised();
        m_shouldStop = true;
        return;
    }

    bool first = true;
    bool failed = false;
    qint64 packets = 0;
    while (!failed) {
        if (m_shouldStop.load()) {
            qCDebug(lcMedia) << "Should stop is true, line:" << __LINE__;
            break;
        }
        double target = -1.0;
        {
            QMutexLocker lock(&m_mutex);
            std::swap(target, m_pendingSeek);
        }
        if (target >= 0.0) {
            performSeek(target);
        } else if (m_seekLandedLate) {
            m_seekLandedLate = false;
            ++m_seekRetries;
            const double margin = kFirstSeekMargin * double(1 << (2 * (m_seekRetries - 1)));
            qCDebug(lcMedia) << "Seek to" << m_seekTarget << "landed late; again from" << margin << "s before";
            seekTo(m_seekTarget, margin);
        }

        if (m_packetLimit > 0 && packets >= m_packetLimit) {
            // A bounded run ends as if stopped: it did not reach the end of the stream.
            m_shouldStop = true;
            break;
        }
        const int err = av_read_frame(m_formatContext, packet);
        if (err < 0) {
            if (m_shouldStop.load())
                break;
            const AVIOContext *pb = m_formatContext->pb;
            if (err != AVERROR_EOF && pb && pb->error < 0 && pb->error != AVERROR_EOF) {
                const QString reason = ffmpegErrorText(pb->error);
                qCWarning(lcMedia) << "Reading" << sourceName() << "failed:" << reason;
                setError(ReadError, QStringLiteral("Error reading input\nError: %1").arg(reason));
                m_shouldStop = true;
                failed = true;
                break;
            }
            // A demuxer that cannot make sense of what follows has nothing more to give, as at
            // the end.
            if (err != AVERROR_EOF)
                qCInfo(lcMedia) << "av_read_frame ended with" << ffmpegErrorText(err);
            failed = !drainAtEnd();
            // A seek taken in the hooks of those last frames (a speed change near the end is
            // one) is still to be carried out: the run reads on from its target instead of
            // ending short.
            if (!failed && !m_shouldStop.load() && isSeekPending())
                continue;
            break;
        }
        ++packets;
        if (first) {
            qCDebug(lcMedia) << "First pkg is at:" << packet->pts << packet->dts << "stream" << packet->stream_index;
            first = false;
        }

        if (packet->stream_index == m_videoStreamIndex) {
            failed = !decodePacket(m_videoCodec, packet, nullptr);
        } else {
            auto it = m_audioStreams.find(packet->stream_index);
            if (it != m_audioStreams.end() && !it->second.leftOut)
                failed = !decodePacket(it->second.codec, packet, &it->second);
        }
        av_packet_unref(packet);
    }

    if (failed) {
        nameSourceInError();
        Q_EMIT errorRaised();
    }
    av_packet_free(&packet);
}

bool OVVideoDecoderBase::drainAtEnd()
{
    // The decoders hold back their last frames until told that no more packets come.
    bool failed = false;
    if (m_videoCodec)
        failed = !decodePacket(m_videoCodec, nullptr, nullptr);
    for (auto it = m_audioStreams.begin(); !failed && it != m_audioStreams.end(); ++it) {
        if (!it->second.leftOut)
            failed = !decodePacket(it->second.codec, nullptr, &it->second);
    }
    // A short file can end before the refusals add up: one whose codec refused every packet
    // of what was to be played has not been played.
    if (!failed && m_videoCodec && !m_videoDecodedAny && m_videoRefusedInARow > 0) {
        failed = !decodingFailed(m_lastRefusal, true);
    } else if (!failed && !m_videoCodec) {
        bool any = false;
        for (const auto &entry : m_audioStreams)
            any = any || entry.second.decodedAny || entry.second.refusedInARow == 0;
        if (!any)
            failed = !decodingFailed(m_lastRefusal, false);
    }
    return !failed;
}

bool OVVideoDecoderBase::decodePacket(AVCodecContext *codec, const AVPacket *packet, OVAudioStream *audio)
{
    const bool isVideo = audio == nullptr;
    // A decoder that is full answers EAGAIN: its frames are taken out first and the packet is sent
    // again once it has room, so no packet is lost.
    int err = avcodec_send_packet(codec, packet);
    bool sent = err != AVERROR(EAGAIN);
    if (err < 0 && sent && err != AVERROR_EOF)
        return packetRefused(err, audio);
    bool gotFrame = false;
    // A threaded decoder reports a damaged packet when a later one is sent; each report is taken
    // once, but a decoder must not keep us here for ever.
    int errorsHere = 0;
    for (;;) {
        if (m_shouldStop.load()) {
            qCDebug(lcMedia) << "Should stop is true, line:" << __LINE__;
            return true;
        }
        err = avcodec_receive_frame(codec, m_frame);
        if (err == AVERROR(EAGAIN) || err == AVERROR_EOF) {
            if (!sent) {
                sent = true;
                err = avcodec_send_packet(codec, packet);
                if (err < 0 && err != AVERROR(EAGAIN) && err != AVERROR_EOF)
                    return packetRefused(err, audio);
                continue;
            }
            if (isVideo && packet && !gotFrame)
                qCDebug(lcMedia) << "Frame not here yet";
            return true;
        }
        if (err < 0) {
            if (!packetRefused(err, audio))
                return false;
            if (++errorsHere >= MaxRefusedPackets)
                return true;
            continue;
        }
        gotFrame = true;
        (isVideo ? m_videoRefusedInARow : audio->refusedInARow) = 0;
        (isVideo ? m_videoDecodedAny : audio->decodedAny) = true;
        deliverFrame(m_frame, audio);
        av_frame_unref(m_frame);
    }
}

bool OVVideoDecoderBase::packetRefused(int err, OVAudioStream *audio)
{
    const bool isVideo = audio == nullptr;
    if (endsDecoding(err))
        return decodingFailed(err, isVideo);
    ++m_skippedPackets;
    m_lastRefusal = err;
    int &refused = isVideo ? m_videoRefusedInARow : audio->refusedInARow;
    ++refused;
    const char *type = isVideo ? "video" : "audio";
    if (refused <= kLoggedRefusals)
        qCWarning(lcMedia).noquote() << "Skipped a damaged" << type << "packet of" << sourceName() << "-"
                                     << ffmpegErrorText(err);
    else
        qCDebug(lcMedia).noquote() << "Skipped a damaged" << type << "packet:" << ffmpegErrorText(err);
    if (refused < MaxRefusedPackets)
        return true;

    // Not a damaged stretch but a stream the codec cannot decode. Sound beside a picture or other
    // sound is left out; the stream that alone carries the recording ends the run.
    if (audio) {
        bool others = m_videoStreamIndex >= 0;
        for (const auto &entry : m_audioStreams)
            others = others || (&entry.second != audio && !entry.second.leftOut);
        if (others) {
            qCWarning(lcMedia).noquote() << "Audio stream" << audio->stream->index << "of" << sourceName()
                                         << "cannot be decoded and is left out:" << ffmpegErrorText(err);
            audio->leftOut = true;
            return true;
        }
    }
    return decodingFailed(err, isVideo);
}

bool OVVideoDecoderBase::decodingFailed(int err, bool video)
{
    const QString message = (video ? QStringLiteral("Error decoding video frame\nError: %1")
                                   : QStringLiteral("Error decoding audio frame\nError: %1"))
                                .arg(ffmpegErrorText(err));
    qCWarning(lcMedia).noquote() << message << sourceName();
    setError(DecodeError, message);
    m_shouldStop = true;
    return false;
}

void OVVideoDecoderBase::nameSourceInError()
{
    const QString name = sourceName();
    QMutexLocker lock(&m_mutex);
    if (!m_errorMessage.isEmpty() && !m_errorMessage.contains(name))
        m_errorMessage += QStringLiteral("\nFile: ") + name;
}

void OVVideoDecoderBase::deliverFrame(AVFrame *frame, OVAudioStream *audio)
{
    // Nothing of a position about to be left again is handed on.
    if (m_seekLandedLate)
        return;
    double &dropBefore = audio ? audio->dropBefore : m_videoDropBefore;
    if (dropBefore >= 0.0) {
        const double t = frameTime(frame, audio ? audio->timeBase : m_videoTimeBase);
        // A frame without a time cannot be placed; keep dropping until one shows where we are.
        if (std::isnan(t) || t + kTimeTolerance < dropBefore)
            return;
        dropBefore = -1.0;
        if (!audio && m_checkSeekLanding) {
            m_checkSeekLanding = false;
            // More than a frame and a half past the target: the pictures up to it were lost.
            const bool late = t > m_seekTarget + 1.5 * m_videoFrameDuration + kTimeTolerance;
            if (late && m_seekRetries < kSeekRetries && m_seekFrom > 0.0) {
                m_seekLandedLate = true;
                return;
            }
        }
    }
    if (audio)
        processAudioFrame(frame, *audio);
    else
        processVideoFrame(frame);
}

void OVVideoDecoderBase::performSeek(double target)
{
    qCDebug(lcMedia) << "Seeking to" << target;
    m_seekTarget = target;
    m_seekRetries = 0;
    m_seekLandedLate = false;
    seekTo(target, 0.0);
    const int serial = ++m_seekSerial;
    seekPerformed(target, serial);
}

void OVVideoDecoderBase::seekTo(double target, double margin)
{
    m_seekFrom = std::max(0.0, target - margin);
    const double position = m_seekFrom + m_containerStart.load() + m_startOffset;
    const int64_t timestamp = int64_t(position * 1000000.0);
    const int err = av_seek_frame(m_formatContext, -1, timestamp, AVSEEK_FLAG_BACKWARD);
    if (err < 0)
        qCWarning(lcMedia) << "av_seek_frame failed:" << ffmpegErrorText(err);
    // What the codecs hold belongs to the old position: without a flush their first packets here
    // would be read as a continuation and refused.
    for (auto &entry : m_audioStreams) {
        avcodec_flush_buffers(entry.second.codec);
        entry.second.dropBefore = target;
        entry.second.refusedInARow = 0;
    }
    if (m_videoCodec)
        avcodec_flush_buffers(m_videoCodec);
    m_videoDropBefore = target;
    m_videoRefusedInARow = 0;
    m_checkSeekLanding = m_videoCodec != nullptr;
}

void OVVideoDecoderBase::closeAll()
{
    avcodec_free_context(&m_videoCodec);
    for (auto &entry : m_audioStreams) {
        entry.second.resampler.reset();
        avcodec_free_context(&entry.second.codec);
    }
    m_audioStreams.clear();
    if (m_formatContext)
        avformat_close_input(&m_formatContext);
    // With custom I/O the I/O context and its (possibly replaced) buffer stay ours.
    if (m_ioContext) {
        av_freep(&m_ioContext->buffer);
        avio_context_free(&m_ioContext);
    }
    avformat_free_context(m_formatContext);
    m_formatContext = nullptr;
    av_frame_free(&m_frame);
    m_videoStreamIndex = -1;
}
