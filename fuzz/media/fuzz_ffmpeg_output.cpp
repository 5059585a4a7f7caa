// Arbitrary text as the ffmpeg tool's error output, cut into chunks at arbitrary places: the
// progress parser must never crash, and what it reports must stay within its range.
#include "media/nxffmpegwrapper.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte chooses the chunk length, as the tool's pipe delivers whatever it has.
    const size_t chunk = 1 + data[0] % 64;
    const QByteArray text(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    NXFFmpegWrapper::OutputState state;
    for (qsizetype at = 0; at < text.size(); at += qsizetype(chunk))
        NXFFmpegWrapper::parseOutput(state, QString::fromUtf8(text.mid(at, qsizetype(chunk))));
    if (std::isnan(state.total) || std::isnan(state.done))
        std::abort();
    const double remaining = NXFFmpegWrapper::estimateRemaining(state.done, state.total, 1.0);
    if (std::isnan(remaining))
        std::abort();
    return 0;
}
