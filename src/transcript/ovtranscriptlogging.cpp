#include "transcript/ovtranscriptlogging.h"

Q_LOGGING_CATEGORY(lcTranscript, "kavot.transcript", QtInfoMsg)
