#include "widgets/ovwidgetslogging.h"

Q_LOGGING_CATEGORY(lcWidgets, "kavot.widgets", QtInfoMsg)
