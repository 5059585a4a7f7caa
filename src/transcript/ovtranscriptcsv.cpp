#include "transcript/ovtranscriptcsv.h"

#include "log/ovtimeformat.h"
#include "project/ovreadbudget.h"

#include <QObject>

namespace {

enum Column { StartSeconds, EndSeconds, StartTime, EndTime, Speaker, Text, ColumnCount };

int columnOf(const QString &title)
{
    const QString t = title.trimmed().toLower();
    static const QList<QPair<Column, QStringList>> names {
        { StartSeconds, { QStringLiteral("start"), QStringLiteral("start (s)"), QStringLiteral("begin"), QStringLiteral("begin time - ss.msec"), QStringLiteral("start time (s)") } },
        { EndSeconds, { QStringLiteral("end"), QStringLiteral("end (s)"), QStringLiteral("stop"), QStringLiteral("end time - ss.msec"), QStringLiteral("end time (s)") } },
        { StartTime, { QStringLiteral("start time"), QStringLiteral("begin time - hh:mm:ss.ms") } },
        { EndTime, { QStringLiteral("end time"), QStringLiteral("end time - hh:mm:ss.ms") } },
        { Speaker, { QStringLiteral("speaker"), QStringLiteral("tier"), QStringLiteral("participant"), QStringLiteral("label") } },
        { Text, { QStringLiteral("text"), QStringLiteral("utterance"), QStringLiteral("transcript"), QStringLiteral("annotation") } },
    };
    for (const auto &[column, titles] : names) {
        if (titles.contains(t))
            return column;
    }
    return -1;
}

} // namespace

OVTable OVTranscriptCsv::table(const OVTranscriptData &data)
{
    OVTable table;
    table.name = QObject::tr("Transcript");
    table.columns = { { QStringLiteral("Start"), OVTable::Duration }, { QStringLiteral("End"), OVTable::Duration },
        { QStringLiteral("Start Time"), OVTable::Text }, { QStringLiteral("End Time"), OVTable::Text },
        { QStringLiteral("Speaker"), OVTable::Text }, { QStringLiteral("Text"), OVTable::Text } };
    table.rowCount = data.rows.size();
    const QList<OVTranscriptData::Row> rows = data.rows;
    table.row = [rows](qint64 index, QVariantList &cells) {
        const OVTranscriptData::Row &r = rows.at(index);
        cells = { r.start, r.end, OVTimeFormat::format(r.start), OVTimeFormat::format(r.end), r.tier, r.text };
    };
    return table;
}

bool OVTranscriptCsv::parse(const QString &text, QList<QStringList> *records, QList<int> *lines, OVReadBudget *budget,
    QString *why)
{
    int line = 1;
    int recordLine = 1;
    int quoteLine = 0;
    QStringList fields;
    QString field;
    bool quoted = false;
    // After a closing quote only a separator or the end of the record may follow.
    bool closed = false;
    auto fail = [why](int at, const QString &what) {
        *why = QObject::tr("line %1: %2").arg(at).arg(what);
        return false;
    };
    auto endRecord = [&]() {
        fields.append(field);
        field.clear();
        records->append(fields);
        lines->append(recordLine);
        fields.clear();
        closed = false;
        recordLine = line;
    };
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const QChar c = text.at(i);
        if (field.size() > OVTranscriptInput::MaxFieldChars)
            return fail(recordLine, QObject::tr("a field is longer than %1 characters").arg(OVTranscriptInput::MaxFieldChars));
        if (quoted) {
            if (c == QLatin1Char('"')) {
                if (i + 1 < n && text.at(i + 1) == QLatin1Char('"')) {
                    field.append(c);
                    ++i;
                } else {
                    quoted = false;
                    closed = true;
                }
            } else {
                if (c == QLatin1Char('\n'))
                    ++line;
                field.append(c);
            }
            continue;
        }
        if (c == QLatin1Char(',')) {
            fields.append(field);
            field.clear();
            closed = false;
        } else if (c == QLatin1Char('\r') || c == QLatin1Char('\n')) {
            if (c == QLatin1Char('\r') && i + 1 < n && text.at(i + 1) == QLatin1Char('\n'))
                ++i;
            ++line;
            endRecord();
            if ((records->size() & 1023) == 0) {
                if (budget && budget->isCancelled())
                    return fail(line, QObject::tr("cancelled"));
                if (budget)
                    budget->setProgress(int(i * 1000 / n));
            }
        } else if (closed) {
            return fail(line, QObject::tr("text after a closing quote (a quote inside a field must be doubled)"));
        } else if (c == QLatin1Char('"')) {
            if (!field.isEmpty())
                return fail(line, QObject::tr("a quote inside an unquoted field (a field with quotes must be quoted as a whole)"));
            quoted = true;
            quoteLine = line;
        } else {
            field.append(c);
        }
    }
    if (quoted)
        return fail(quoteLine, QObject::tr("a quoted field is not closed"));
    // A last record without a line end.
    if (!field.isEmpty() || !fields.isEmpty() || closed)
        endRecord();
    return true;
}

bool OVTranscriptCsv::read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget, QString *why)
{
    QString text;
    if (!OVTranscriptInput::decode(bytes, &text, why))
        return false;
    QList<QStringList> records;
    QList<int> lines;
    if (!parse(text, &records, &lines, budget, why))
        return false;
    if (records.isEmpty()) {
        *why = QObject::tr("the file is empty; a header row (Start, End, Speaker, Text) is expected");
        return false;
    }
    const QStringList &header = records.first();
    QList<int> at(ColumnCount, -1);
    for (int i = 0; i < header.size(); ++i) {
        const int c = columnOf(header.at(i));
        if (c >= 0 && at[c] < 0)
            at[c] = i;
    }
    const bool hasStart = at[StartSeconds] >= 0 || at[StartTime] >= 0;
    const bool hasEnd = at[EndSeconds] >= 0 || at[EndTime] >= 0;
    if (!hasStart || !hasEnd || at[Text] < 0) {
        *why = QObject::tr("line 1: the header needs the columns \"Start\", \"End\" and \"Text\" (found: %1)")
                   .arg(header.join(QStringLiteral(", ")).left(200));
        return false;
    }
    auto timeOf = [&](const QStringList &fields, Column seconds, Column formatted, int line, double *value) {
        const int c = at[seconds] >= 0 ? at[seconds] : at[formatted];
        if (OVTranscriptInput::parseSeconds(fields.at(c), value))
            return true;
        *why = QObject::tr("line %1: \"%2\" in the column \"%3\" is not a time").arg(line).arg(fields.at(c).left(40), header.at(c));
        return false;
    };

    QList<OVTranscriptData::Row> rows;
    OVTranscriptReport result;
    for (qsizetype r = 1; r < records.size(); ++r) {
        const QStringList &fields = records.at(r);
        const int line = lines.at(r);
        if (fields.size() == 1 && fields.first().trimmed().isEmpty()) {
            result.skip(QObject::tr("line %1: blank").arg(line));
            continue;
        }
        if (fields.size() != header.size()) {
            *why = QObject::tr("line %1: %2 fields where the header has %3").arg(line).arg(fields.size()).arg(header.size());
            return false;
        }
        OVTranscriptData::Row row;
        if (!timeOf(fields, StartSeconds, StartTime, line, &row.start) || !timeOf(fields, EndSeconds, EndTime, line, &row.end))
            return false;
        if (row.end < row.start) {
            *why = QObject::tr("line %1: the utterance ends (%2) before it starts (%3)")
                       .arg(line)
                       .arg(OVTimeFormat::format(row.end), OVTimeFormat::format(row.start));
            return false;
        }
        if (at[Speaker] >= 0)
            row.tier = fields.at(at[Speaker]);
        row.text = fields.at(at[Text]);
        if (!OVTranscriptInput::takeRow(budget, line, why))
            return false;
        rows.append(row);
    }
    return OVTranscriptInput::finish(rows, result, data, report);
}
