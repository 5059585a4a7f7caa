#include "log/ovloglogging.h"

Q_LOGGING_CATEGORY(lcLog, "kavot.log", QtInfoMsg)
