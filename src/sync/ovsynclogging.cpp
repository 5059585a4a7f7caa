#include "sync/ovsynclogging.h"

Q_LOGGING_CATEGORY(lcSync, "kavot.sync", QtInfoMsg)
