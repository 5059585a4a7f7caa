#include "media/ovmedialogging.h"

Q_LOGGING_CATEGORY(lcMedia, "kavot.media", QtInfoMsg)

extern "C" {
#include <libavutil/error.h>
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
