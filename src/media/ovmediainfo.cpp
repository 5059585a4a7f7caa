#include "media/ovmediainfo.h"

#include "media/ovffmpeg.h"
#include "media/ovmedialogging.h"
#include "media/ovvideoconverter.h"

#include <QFile>
#include <QJsonArray>

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/log.h>
}

namespace {

constexpr int64_t kAnalyzeDuration = 60000000; // 60 s
constexpr int64_t kProbeSize = 25000000;

QString ratioText(AVRational r)
{
    if (r.num <= 0 || r.den <= 0)
        return QString();
    return QStringLiteral("%1:%2").arg(r.num).arg(r.den);
}

// avformat wants an 8-bit path; the local encoding of the file system is what it passes on.
QByteArray nativePath(const QString &path)
{
    return QFile::encodeName(path);
}

// Opens `path` and reads its streams' facts, looking as far into the file as the probes do.
// Error 1: the file cannot be opened; 2: its streams cannot be understood.
OV::Error openInput(const QString &path, AVFormatContext **result)
{
    ffmpegSetUp();
    AVFormatContext *format = avformat_alloc_context();
    if (!format)
        return OV::Error(1, QStringLiteral("Cannot open input file"));
    format->max_analyze_duration = kAnalyzeDuration;
    format->probesize = kProbeSize;
    AVDictionary *options = nullptr;
    av_dict_set_int(&options, "analyzeduration", kAnalyzeDuration, 0);
    av_dict_set_int(&options, "probesize", kProbeSize, 0);

    int err = avformat_open_input(&format, nativePath(path).constData(), nullptr, &options);
    av_dict_free(&options);
    if (err < 0) {
        av_log(nullptr, AV_LOG_ERROR, "Cannot open input file\n");
        qCWarning(lcMedia) << "OVMediaInfo: cannot open" << path << ffmpegErrorText(err);
        return OV::Error(1, QStringLiteral("Cannot open input file"));
    }
    err = avformat_find_stream_info(format, nullptr);
    if (err < 0) {
        av_log(nullptr, AV_LOG_ERROR, "Cannot find stream information\n");
        qCWarning(lcMedia) << "OVMediaInfo: no stream information in" << path << ffmpegErrorText(err);
        avformat_close_input(&format);
        return OV::Error(2, QStringLiteral("Cannot find stream information"));
    }
    *result = format;
    return OV::Error::success();
}

} // namespace

QJsonObject OVMediaInfo::Stream::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("index"), index);
    o.insert(QStringLiteral("type"), type);
    o.insert(QStringLiteral("codec"), codec);
    if (type == QLatin1String("video")) {
        o.insert(QStringLiteral("width"), width);
        o.insert(QStringLiteral("height"), height);
        o.insert(QStringLiteral("sampleAspectRatio"), sampleAspectRatio);
        o.insert(QStringLiteral("displayAspectRatio"), displayAspectRatio);
        o.insert(QStringLiteral("rotation"), rotation);
    } else if (type == QLatin1String("audio")) {
        o.insert(QStringLiteral("channelLayout"), channelLayout);
        o.insert(QStringLiteral("channels"), channels);
        o.insert(QStringLiteral("sampleFormat"), sampleFormat);
        o.insert(QStringLiteral("sampleRate"), sampleRate);
    }
    o.insert(QStringLiteral("duration"), duration);
    return o;
}

QJsonObject OVMediaInfo::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("path"), path);
    o.insert(QStringLiteral("format"), formatName);
    o.insert(QStringLiteral("duration"), duration);
    o.insert(QStringLiteral("startTime"), startTime);
    QJsonArray list;
    for (const Stream &s : streams)
        list.append(s.toJson());
    o.insert(QStringLiteral("streams"), list);
    return o;
}

OV::Error OVMediaInfo::probe(const QString &path, OVMediaInfo *info)
{
    *info = OVMediaInfo();
    info->path = path;

    AVFormatContext *format = nullptr;
    if (const OV::Error error = openInput(path, &format); !error.isOk())
        return error;

    info->formatName = QString::fromUtf8(format->iformat ? format->iformat->name : "");
    const double containerDuration = format->duration != AV_NOPTS_VALUE ? format->duration / 1000000.0 : 0.0;
    info->duration = containerDuration;
    if (format->start_time != AV_NOPTS_VALUE)
        info->startTime = double(format->start_time) / AV_TIME_BASE;

    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream *st = format->streams[i];
        const AVCodecParameters *par = st->codecpar;
        Stream s;
        s.index = int(i);
        const char *type = av_get_media_type_string(par->codec_type);
        s.type = QString::fromUtf8(type ? type : "unknown");
        s.codec = QString::fromUtf8(avcodec_get_name(par->codec_id));
        if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
            s.width = par->width;
            s.height = par->height;
            // The stream's own ratio wins; the codec's is the fallback.
            AVRational sar = st->sample_aspect_ratio;
            if (sar.num <= 0)
                sar = par->sample_aspect_ratio;
            s.sampleAspectRatio = ratioText(sar);
            if (s.width > 0 && s.height > 0) {
                AVRational dar {};
                const AVRational pixel = sar.num > 0 ? sar : AVRational { 1, 1 };
                av_reduce(&dar.num, &dar.den, int64_t(s.width) * pixel.num, int64_t(s.height) * pixel.den,
                          1024 * 1024);
                s.displayAspectRatio = ratioText(dar);
            }
            size_t size = 0;
            const uint8_t *matrix = av_stream_get_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, &size);
            OVVideoConverter::rotationFromDisplayMatrix(matrix, size, &s.rotation);
        } else if (par->codec_type == AVMEDIA_TYPE_AUDIO) {
            char layout[128] = {};
            if (av_channel_layout_describe(&par->ch_layout, layout, sizeof(layout)) > 0)
                s.channelLayout = QString::fromUtf8(layout);
            s.channels = par->ch_layout.nb_channels;
            const char *fmt = av_get_sample_fmt_name(AVSampleFormat(par->format));
            s.sampleFormat = QString::fromUtf8(fmt ? fmt : "");
            s.sampleRate = par->sample_rate;
        }
        double d = -1.0;
        if (st->duration != AV_NOPTS_VALUE && st->time_base.den > 0)
            d = double(st->duration) * st->time_base.num / st->time_base.den;
        s.duration = d < 0 ? containerDuration : d;
        info->streams.append(s);
    }
    avformat_close_input(&format);
    return OV::Error::success();
}

OV::Error OVMediaInfo::probeJson(const QString &path, QJsonObject *json)
{
    OVMediaInfo info;
    const OV::Error error = probe(path, &info);
    if (error)
        return error;
    *json = info.toJson();
    return error;
}

double OVMediaInfo::probeDuration(const QString &path)
{
    ffmpegSetUp();
    AVFormatContext *format = avformat_alloc_context();
    if (!format)
        return -1.0;
    format->max_analyze_duration = kAnalyzeDuration;
    if (avformat_open_input(&format, nativePath(path).constData(), nullptr, nullptr) < 0) {
        qCWarning(lcMedia) << "OVMediaInfo: cannot open" << path;
        return -1.0;
    }
    double duration = -1.0;
    if (avformat_find_stream_info(format, nullptr) >= 0 && format->duration != AV_NOPTS_VALUE)
        duration = format->duration / 1000000.0;
    avformat_close_input(&format);
    return duration;
}

OV::Error OVMediaInfo::probeAudioStart(const QString &path, int nthAudio, double *seconds)
{
    *seconds = 0.0;
    AVFormatContext *format = nullptr;
    if (const OV::Error error = openInput(path, &format); !error.isOk())
        return error;
    const std::unique_ptr<AVFormatContext *, void (*)(AVFormatContext **)> closeFormat(&format, avformat_close_input);
    int index = -1;
    if (nthAudio < 0) {
        index = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    } else {
        for (unsigned i = 0, n = 0; i < format->nb_streams && index < 0; ++i) {
            if (format->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO && int(n++) == nthAudio)
                index = int(i);
        }
    }
    if (index < 0)
        return OV::Error(2, QStringLiteral("No such audio stream"));
    const AVStream *stream = format->streams[index];
    const AVCodec *codec = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext *context = codec ? avcodec_alloc_context3(codec) : nullptr;
    const std::unique_ptr<AVCodecContext *, void (*)(AVCodecContext **)> freeContext(&context, avcodec_free_context);
    if (!context || avcodec_parameters_to_context(context, stream->codecpar) < 0
        || avcodec_open2(context, codec, nullptr) < 0)
        return OV::Error(2, QStringLiteral("The audio stream cannot be decoded"));
    context->pkt_timebase = stream->time_base;

    AVPacket *packet = av_packet_alloc();
    AVFrame *frame = av_frame_alloc();
    int64_t first = AV_NOPTS_VALUE;
    // A damaged or silent front may refuse a few packets; a stream that gives nothing in a few
    // hundred is taken to start where its packets do.
    int64_t firstPacket = AV_NOPTS_VALUE;
    for (int read = 0; first == AV_NOPTS_VALUE && read < 2000 && av_read_frame(format, packet) >= 0; ++read) {
        if (packet->stream_index == index) {
            if (firstPacket == AV_NOPTS_VALUE && packet->pts != AV_NOPTS_VALUE)
                firstPacket = packet->pts;
            if (avcodec_send_packet(context, packet) >= 0 && avcodec_receive_frame(context, frame) >= 0)
                first = frame->best_effort_timestamp;
        }
        av_packet_unref(packet);
    }
    av_frame_free(&frame);
    av_packet_free(&packet);
    if (first == AV_NOPTS_VALUE)
        first = firstPacket;
    if (first == AV_NOPTS_VALUE)
        return OV::Error(2, QStringLiteral("The audio stream cannot be decoded"));
    const double start = format->start_time != AV_NOPTS_VALUE ? double(format->start_time) / AV_TIME_BASE : 0.0;
    *seconds = double(first) * av_q2d(stream->time_base) - start;
    return OV::Error::success();
}
