#pragma once

#include <QList>
#include <QString>

namespace OVProject {
class Utterance;
}

// The transcript as text for other programs: plain lines for mail and word processors, and an
// HTML table that spreadsheets and word processors paste as a table.
class OVTranscriptClipboard
{
public:
    // One line per utterance: "start - end<TAB>speaker: text", the text's own line breaks kept
    // on indented continuation lines.
    static QString plainText(const QList<const OVProject::Utterance *> &utterances);
    static QString htmlTable(const QList<const OVProject::Utterance *> &utterances);
};
