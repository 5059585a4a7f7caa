#pragma once

#include <QLoggingCategory>

// The synchronisation area's messages ("kavot.sync"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.sync.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcSync)
