#include "project/ovprojectlogging.h"

Q_LOGGING_CATEGORY(lcProject, "kavot.project", QtInfoMsg)
