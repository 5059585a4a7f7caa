#pragma once

#include "transcript/ovtranscriptdata.h"

// SubRip subtitles (.srt): numbered cues, the speaker in front of the text ("Ana: hello").
class OVTranscriptSrt
{
public:
    static QByteArray write(const OVTranscriptData &data);
    static bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget,
        QString *why);
};
