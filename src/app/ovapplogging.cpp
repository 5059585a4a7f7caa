#include "app/ovapplogging.h"

Q_LOGGING_CATEGORY(lcApp, "kavot.app", QtInfoMsg)
