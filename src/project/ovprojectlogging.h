#pragma once

#include <QLoggingCategory>

// The project model and files area's messages ("kavot.project"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.project.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcProject)
