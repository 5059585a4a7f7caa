#pragma once

#include "log/overror.h"

#include <QtGlobal>

#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

struct AVCodecContext;
struct AVFrame;
struct SwrContext;

// Converts one audio stream's frames to interleaved signed 16-bit stereo at the stream's own rate,
// so the output never needs any further format negotiation. One instance per audio stream.
class OVAudioResampler
{
public:
    static constexpr int OutputChannels = 2;

    OVAudioResampler();
    ~OVAudioResampler();
    OVAudioResampler(const OVAudioResampler &) = delete;
    OVAudioResampler &operator=(const OVAudioResampler &) = delete;

    // Sets the converter up from the codec's layout, rate and sample format. A codec that does not
    // know its layout gets the default layout for its channel count.
    OV::Error init(const AVCodecContext *codec);
    bool isValid() const { return m_swr != nullptr; }
    int sampleRate() const { return m_rate; }

    // Appends nothing and returns false when the conversion fails; otherwise `out` holds
    // `*samplesPerChannel` × 2 interleaved samples. A frame whose format differs from the one
    // set up (a mid-stream change) re-creates the converter first.
    bool convert(const AVFrame *frame, std::vector<qint16> &out, int *samplesPerChannel = nullptr);

private:
    OV::Error setup(const AVChannelLayout *layout, int format, int rate);
    void release();

    SwrContext *m_swr = nullptr;
    AVChannelLayout m_inLayout {};
    int m_inFormat = -1;
    int m_rate = 0;
};
