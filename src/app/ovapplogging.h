#pragma once

#include <QLoggingCategory>

// The application area's messages ("kavot.app"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.app.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcApp)
