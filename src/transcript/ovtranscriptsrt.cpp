#include "transcript/ovtranscriptsrt.h"

#include "project/ovreadbudget.h"
#include "transcript/ovsubtitletext.h"

#include <QObject>

QByteArray OVTranscriptSrt::write(const OVTranscriptData &data)
{
    QString out;
    int index = 0;
    for (const OVTranscriptData::Row &r : data.rows) {
        const QString text = OVSubtitleText::cueText(r.text);
        out += QString::number(++index) + QLatin1Char('\n');
        out += OVSubtitleText::formatTime(r.start, QLatin1Char(',')) + QLatin1String(" --> ")
            + OVSubtitleText::formatTime(r.end, QLatin1Char(',')) + QLatin1Char('\n');
        out += (r.tier.isEmpty() ? text : r.tier + QLatin1String(": ") + text) + QLatin1String("\n\n");
    }
    return out.toUtf8();
}

bool OVTranscriptSrt::read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget, QString *why)
{
    QString text;
    if (!OVTranscriptInput::decode(bytes, &text, why))
        return false;
    const QList<OVSubtitleText::Block> blocks = OVSubtitleText::blocks(text);
    QList<OVTranscriptData::Row> rows;
    OVTranscriptReport result;
    for (const OVSubtitleText::Block &b : blocks) {
        int timing = 0;
        if (!b.lines.first().contains(QLatin1String("-->"))) {
            bool number = false;
            b.lines.first().trimmed().toUInt(&number);
            if (!number || b.lines.size() < 2) {
                *why = QObject::tr("line %1: expected a cue number and a cue timing, found \"%2\"").arg(b.line).arg(b.lines.first().left(60));
                return false;
            }
            timing = 1;
        }
        OVTranscriptData::Row row;
        QString problem;
        if (!OVSubtitleText::parseTiming(b.lines.at(timing), &row.start, &row.end, false, &problem)) {
            *why = QObject::tr("line %1: %2").arg(b.line + timing).arg(problem);
            return false;
        }
        const QString cue = b.lines.mid(timing + 1).join(QLatin1Char('\n'));
        if (cue.size() > OVTranscriptInput::MaxFieldChars) {
            *why = QObject::tr("line %1: the cue's text is longer than %2 characters").arg(b.line).arg(OVTranscriptInput::MaxFieldChars);
            return false;
        }
        if (cue.trimmed().isEmpty()) {
            result.skip(QObject::tr("line %1: a cue without text").arg(b.line));
            continue;
        }
        OVSubtitleText::splitSpeaker(cue, &row.tier, &row.text);
        if (!OVTranscriptInput::takeRow(budget, b.line, why))
            return false;
        rows.append(row);
    }
    return OVTranscriptInput::finish(rows, result, data, report);
}
