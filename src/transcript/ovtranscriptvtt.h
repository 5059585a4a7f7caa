#pragma once

#include "transcript/ovtranscriptdata.h"

// WebVTT captions (.vtt): the speaker in a voice span ("<v Ana>hello"), the text escaped.
class OVTranscriptVtt
{
public:
    static QByteArray write(const OVTranscriptData &data);
    static bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget,
        QString *why);

    static QString escape(const QString &text);
    // Drops the markup of a cue (voice, class, ruby and timestamp tags) and resolves the entities.
    // The first voice span's annotation is the speaker.
    static QString plainText(const QString &cue, QString *speaker);
};
