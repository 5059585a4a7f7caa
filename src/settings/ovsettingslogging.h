#pragma once

#include <QLoggingCategory>

// The settings area's messages ("kavot.settings"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.settings.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcSettings)
