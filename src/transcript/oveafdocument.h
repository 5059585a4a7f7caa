#pragma once

#include "transcript/ovtranscriptdata.h"

// ELAN annotation documents (EAF 3.0). Written with one tier per speaker (linguistic type
// "kavot-utterance") and one per label ("kavot-label"), so that both directions keep which is
// which. Read from any EAF: time-aligned annotations take their time slots (unaligned slots are
// placed evenly between their aligned neighbours, as ELAN shows them), referring annotations
// take the times of the annotation they refer to, shared evenly among the annotations that
// subdivide one parent.
class OVEafDocument
{
public:
    static constexpr const char *UtteranceType = "kavot-utterance";
    static constexpr const char *LabelType = "kavot-label";

    // `mediaPath`: the recording the annotations belong to, may be empty.
    static QByteArray write(const OVTranscriptData &data, const QString &mediaPath = QString());
    static bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget,
        QString *why);
};
