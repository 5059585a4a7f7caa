#pragma once

#include "transcript/ovtranscriptdata.h"

// Praat TextGrids: one interval tier per speaker (or label). Written in the long text form;
// read in the long and the short text form, which carry the same values in the same order and
// differ only in the names and brackets around them.
class OVTextGrid
{
public:
    // Rows of one tier that overlap go to a further tier of the same name (an interval tier
    // cannot hold overlaps); the gaps between rows become empty intervals, as Praat expects.
    // Rows of no length cannot be intervals and are left out (counted in `leftOut`).
    static QByteArray write(const OVTranscriptData &data, qint64 *leftOut = nullptr);
    // Empty intervals are gaps and are not read; point tiers are left out and reported.
    static bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget,
        QString *why);
};
