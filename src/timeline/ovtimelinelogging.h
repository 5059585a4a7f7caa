#pragma once

#include <QLoggingCategory>

// The timeline area's messages ("kavot.timeline"). Debug output is off unless asked for, e.g.
// QT_LOGGING_RULES="kavot.timeline.debug=true"; info and above always reach the log.
Q_DECLARE_LOGGING_CATEGORY(lcTimeline)
