#pragma once

#include <QLoggingCategory>

// The media area's messages ("kavot.media"). Debug output, which comes per packet and per seek, is
// off unless asked for, e.g. QT_LOGGING_RULES="kavot.media.debug=true"; info and above always
// reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcMedia)
