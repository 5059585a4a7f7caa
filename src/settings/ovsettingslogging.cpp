#include "settings/ovsettingslogging.h"

Q_LOGGING_CATEGORY(lcSettings, "kavot.settings", QtInfoMsg)
