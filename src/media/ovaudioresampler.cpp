#include "media/ovaudioresampler.h"

#include "media/ovffmpeg.h"
#include "media/ovmedialogging.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libswresample/swresample.h>
}

namespace {

const QString kInitFailed = QStringLiteral("swr_init failed (problem with sound stream)");

} // namespace

OVAudioResampler::OVAudioResampler() = default;

OVAudioResampler::~OVAudioResampler()
{
    release();
}

void OVAudioResampler::release()
{
    swr_free(&m_swr);
    av_channel_layout_uninit(&m_inLayout);
    m_inFormat = -1;
    m_rate = 0;
}

OV::Error OVAudioResampler::init(const AVCodecContext *codec)
{
    if (!codec)
        return OV::Error(1, kInitFailed);
    return setup(&codec->ch_layout, codec->sample_fmt, codec->sample_rate);
}

OV::Error OVAudioResampler::setup(const AVChannelLayout *layout, int format, int rate)
{
    release();
    AVChannelLayout in {};
    if (layout->order == AV_CHANNEL_ORDER_UNSPEC || !av_channel_layout_check(layout))
        av_channel_layout_default(&in, layout->nb_channels);
    else if (av_channel_layout_copy(&in, layout) < 0)
        av_channel_layout_default(&in, layout->nb_channels);

    if (in.nb_channels <= 0 || rate <= 0 || format < 0) {
        qCWarning(lcMedia) << "Failed to initialize the resampling context: channels" << in.nb_channels << "rate"
                   << rate << "format" << format;
        av_channel_layout_uninit(&in);
        return OV::Error(1, kInitFailed);
    }

    AVChannelLayout out = AV_CHANNEL_LAYOUT_STEREO;
    int err = swr_alloc_set_opts2(&m_swr, &out, AV_SAMPLE_FMT_S16, rate, &in, AVSampleFormat(format), rate, 0,
                                  nullptr);
    if (err >= 0)
        err = swr_init(m_swr);
    if (err < 0) {
        qCWarning(lcMedia) << "Failed to initialize the resampling context" << ffmpegErrorText(err);
        swr_free(&m_swr);
        av_channel_layout_uninit(&in);
        return OV::Error(1, kInitFailed);
    }
    m_inLayout = in;
    m_inFormat = format;
    m_rate = rate;
    return OV::Error::success();
}

bool OVAudioResampler::convert(const AVFrame *frame, std::vector<qint16> &out, int *samplesPerChannel)
{
    out.clear();
    if (samplesPerChannel)
        *samplesPerChannel = 0;
    if (!frame || frame->nb_samples <= 0)
        return false;

    // The converter reads exactly the planes it was set up for, so any change of layout, format or
    // rate must rebuild it before the frame is touched.
    const bool changed = frame->format != m_inFormat || frame->sample_rate != m_rate
        || frame->ch_layout.nb_channels != m_inLayout.nb_channels;
    if (!m_swr || changed) {
        if (setup(&frame->ch_layout, frame->format, frame->sample_rate))
            return false;
    }

    const int64_t count = av_rescale_rnd(swr_get_delay(m_swr, m_rate) + frame->nb_samples, m_rate, m_rate,
                                         AV_ROUND_UP);
    if (count <= 0 || count > (1 << 24))
        return false;
    out.resize(size_t(count) * OutputChannels);
    uint8_t *dst = reinterpret_cast<uint8_t *>(out.data());
    const int converted = swr_convert(m_swr, &dst, int(count), const_cast<const uint8_t **>(frame->extended_data),
                                      frame->nb_samples);
    if (converted < 0) {
        qCWarning(lcMedia) << "Error while converting audio:" << ffmpegErrorText(converted);
        out.clear();
        return false;
    }
    out.resize(size_t(converted) * OutputChannels);
    if (samplesPerChannel)
        *samplesPerChannel = converted;
    return true;
}
