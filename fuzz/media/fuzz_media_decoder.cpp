// Feeds arbitrary bytes as a media file through the decoder's custom I/O, its start-up and the first
// packets, with the picture and sound conversion the player does.
#include "media/ovmemorymediasource.h"
#include "media/ovvideoconverter.h"
#include "media/ovvideodecoderbase.h"

#include <QtGlobal>

#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace {

class FuzzDecoder : public OVVideoDecoderBase
{
public:
    // Runs on the calling thread: one thread per input would only slow the fuzzer down.
    void runHere() { run(); }

protected:
    int initDecoding(AVFormatContext *, AVStream *videoStream, AVCodecContext *videoCodec,
                     OVAudioStreamMap &audioStreams) override
    {
        // Keep the output small: the point is the code path, not the pixels. A converter that fails
        // to set up refuses every picture, which is also a path worth running.
        if (videoCodec)
            m_converter.init(QSize(videoCodec->width, videoCodec->height), videoCodec->pix_fmt, QSize(64, 64),
                             videoStream);
        for (auto &entry : audioStreams) {
            entry.second.resampler = std::make_unique<OVAudioResampler>();
            entry.second.resampler->init(entry.second.codec);
        }
        return 0;
    }
    void processVideoFrame(AVFrame *frame) override
    {
        OVVideoFrame out;
        m_converter.convert(frame, &out);
        if (++m_frames == 3)
            requestSeek(0.0);
    }
    void processAudioFrame(AVFrame *frame, OVAudioStream &stream) override
    {
        std::vector<qint16> out;
        if (stream.resampler)
            stream.resampler->convert(frame, out);
    }

private:
    OVVideoConverter m_converter;
    int m_frames = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    OVMemoryMediaSource source(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    FuzzDecoder decoder;
    decoder.setSource(&source);
    // Bounded work per input: a small probe and a handful of packets.
    decoder.setProbeLimits(32768, 200000);
    decoder.setPacketLimit(48);
    decoder.setCodecThreads(1);
    decoder.runHere();
    return 0;
}
