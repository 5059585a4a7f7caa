#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>

class OVReadBudget;

// What a transcript file holds, whatever its format: annotations on named tiers. A tier is a
// speaker for utterances and a label for coded segments; files of other tools do not say which,
// so the importer lets the user decide (kind is only a hint, set where our own writers left one).
struct OVTranscriptData
{
    enum Kind { Speech, Labels };
    struct Row
    {
        QString tier;
        double start = 0.0;
        double end = 0.0;
        QString text;
        Kind kind = Speech;

        bool operator==(const Row &) const = default;
    };

    QList<Row> rows;

    QList<Row> rowsOf(Kind kind) const
    {
        QList<Row> out;
        for (const Row &r : rows)
            if (r.kind == kind)
                out.append(r);
        return out;
    }
};

// What an import read and what it left out, for the message after it and for the log.
struct OVTranscriptReport
{
    qint64 read = 0;
    qint64 skipped = 0;
    // Why rows were left out, the first few of them (a file can skip thousands).
    QStringList notes;

    void skip(const QString &why, qint64 count = 1)
    {
        skipped += count;
        if (notes.size() < MaxNotes)
            notes.append(why);
    }
    QString summary() const;

    static constexpr int MaxNotes = 20;
};

// What every reader of these formats shares: the limits on what a file may cost, text decoding
// and the conversion of times.
class OVTranscriptInput
{
public:
    // A transcript of many hours is a few megabytes; anything far beyond is not a transcript.
    static constexpr qint64 MaxFileBytes = qint64(64) << 20;
    // A field longer than this is a damaged file, not an utterance.
    static constexpr int MaxFieldChars = 100'000;

    // The text of a file: UTF-8 (with or without a byte order mark) or UTF-16 with its mark.
    // False, with the reason, for anything that does not decode.
    static bool decode(const QByteArray &bytes, QString *text, QString *why);
    // Seconds as "12.345" or in the shared time format ("00:00:12.345"); false on anything else,
    // on negative and on non-finite times.
    static bool parseSeconds(const QString &text, double *seconds);
    // Rounds to whole milliseconds, the precision every format here keeps.
    static double toMilliseconds(double seconds);
    // Draws `count` rows from the budget; false when it is spent or the read was cancelled.
    static bool takeRows(OVReadBudget *budget, qint64 count, QString *why);
    // The same for one row read at `line`, the reason naming the line.
    static bool takeRow(OVReadBudget *budget, int line, QString *why);
    // Hands what a reader read to its caller, only once the whole file has been read.
    static bool finish(const QList<OVTranscriptData::Row> &rows, OVTranscriptReport result, OVTranscriptData *data,
        OVTranscriptReport *report);
};
