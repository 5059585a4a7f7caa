#pragma once

#include <QLoggingCategory>

// The logging area's messages ("kavot.log"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.log.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcLog)
