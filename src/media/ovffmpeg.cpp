#include "media/ovffmpeg.h"

#include <mutex>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

QString ffmpegErrorText(int err)
{
    char buf[AV_ERROR_MAX_STRING_SIZE] = {};
    // Codecs and parsers return codes of their own (AC-3's sync error is one) that FFmpeg has no
    // text for; they all mean data the codec could not make sense of.
    if (av_strerror(err, buf, sizeof(buf)) < 0)
        return QStringLiteral("Damaged or unexpected data (decoder code %1)").arg(err);
    return QString::fromUtf8(buf);
}

void ffmpegSetUp()
{
    // The largest legitimate buffer here is a decoded picture: 8K in RGBA is 133 MB.
    static std::once_flag once;
    std::call_once(once, [] { av_max_alloc(MaxFfmpegAllocation); });
}
