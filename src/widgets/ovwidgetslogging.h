#pragma once

#include <QLoggingCategory>

// The shared widgets area's messages ("kavot.widgets"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.widgets.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcWidgets)
