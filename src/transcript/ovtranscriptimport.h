#pragma once

#include "transcript/ovtranscriptdata.h"

namespace OVProject {
class Project;
class Timeline;
} // namespace OVProject

// Puts what a transcript file held into a timeline, as one step of the project's history: as
// its utterances (replacing the transcript; the tier is the speaker) or as segments of its labels
// (the tier is the label, found by name or added; the annotation is the segment's description).
class OVTranscriptImport
{
public:
    enum Target { Utterances, Labels };

    struct Result
    {
        qint64 utterances = 0;
        qint64 segments = 0;
        qint64 labelsAdded = 0;
    };

    // Rows our own writers marked for the other target are left out and reported; rows of other
    // tools carry no such mark and all go to `target`. False, and nothing changed, on failure.
    static bool apply(OVProject::Project *project, OVProject::Timeline *timeline, const OVTranscriptData &data,
        Target target, Result *result, OVTranscriptReport *report, QString *why);

    static Target targetForName(const QString &name, bool *ok);
};
