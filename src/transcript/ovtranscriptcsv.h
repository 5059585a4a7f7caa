#pragma once

#include "project/ovtable.h"
#include "transcript/ovtranscriptdata.h"

// Transcripts as CSV (RFC 4180) and Excel tables: one row per utterance with its start and end in
// seconds (three decimals) and in the shared time format, the speaker and the text.
class OVTranscriptCsv
{
public:
    // The rows of `data` as a table for OVTableWriter (CSV or XLSX).
    static OVTable table(const OVTranscriptData &data);

    // Reads a CSV file with a header row. The columns are found by their titles (those table()
    // writes, and the usual names of other tools: "Begin", "Speaker", "Tier", "Transcript"...).
    // Blank rows are left out; anything else that cannot be read refuses the whole file, naming
    // its line, and leaves `data` untouched.
    static bool read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report, OVReadBudget *budget,
        QString *why);

    // Splits CSV text into records of fields. `lines` gets the line each record starts on.
    static bool parse(const QString &text, QList<QStringList> *records, QList<int> *lines, OVReadBudget *budget,
        QString *why);
};
