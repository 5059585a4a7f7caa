#include "media/ovmedialogging.h"

Q_LOGGING_CATEGORY(lcMedia, "kavot.media", QtInfoMsg)
