#include "timeline/ovtimelinelogging.h"

Q_LOGGING_CATEGORY(lcTimeline, "kavot.timeline", QtInfoMsg)
