#include "media/ovtimestretch.h"

#include <algorithm>
#include <cstring>

int OVTimeStretch::outputFrames(int inputFrames, double timeFactor)
{
    if (inputFrames <= 0 || !(timeFactor > 0.0))
        return 0;
    return static_cast<int>(inputFrames * timeFactor);
}

void OVTimeStretch::stretch(const qint16 *in, int inFrames, int channels, qint16 *out,
                            int outFrames)
{
    if (outFrames <= 0 || channels <= 0)
        return;
    if (inFrames <= 0) {
        std::memset(out, 0, sizeof(qint16) * std::size_t(outFrames) * std::size_t(channels));
        return;
    }
    if (inFrames == outFrames) {
        std::memcpy(out, in, sizeof(qint16) * std::size_t(outFrames) * std::size_t(channels));
        return;
    }
    for (int c = 0; c < channels; ++c) {
        int next = 0; // first output frame not yet written
        for (int i = 0; i < inFrames; ++i) {
            // 64-bit product: an hour of 48 kHz sound times a doubled length overflows 32 bits.
            const int pos = static_cast<int>(qint64(i) * outFrames / inFrames);
            const qint16 sample = in[std::size_t(i) * channels + c];
            // Fill any gap with the sample written before it.
            for (int gap = next; gap < pos; ++gap)
                out[std::size_t(gap) * channels + c] = out[std::size_t(gap - 1) * channels + c];
            out[std::size_t(pos) * channels + c] = sample;
            next = std::max(next, pos + 1);
        }
        const qint16 last = in[std::size_t(inFrames - 1) * channels + c];
        for (int tail = next; tail < outFrames; ++tail)
            out[std::size_t(tail) * channels + c] = last;
    }
}

std::vector<qint16> OVTimeStretch::stretched(const qint16 *in, int inFrames, int channels,
                                             double timeFactor)
{
    const int outFrames = outputFrames(inFrames, timeFactor);
    std::vector<qint16> out(std::size_t(std::max(outFrames, 0)) * std::size_t(std::max(channels, 0)));
    stretch(in, inFrames, channels, out.data(), outFrames);
    return out;
}
