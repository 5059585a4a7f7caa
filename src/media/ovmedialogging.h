#pragma once

#include <QLoggingCategory>
#include <QString>

// The media area's messages ("kavot.media"). Debug output, which comes per packet and per seek, is
// off unless asked for, e.g. QT_LOGGING_RULES="kavot.media.debug=true"; info and above always
// reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcMedia)

// FFmpeg's text for an error code, also for the codes of its codecs and parsers that it has
// no text for.
QString ffmpegErrorText(int err);
