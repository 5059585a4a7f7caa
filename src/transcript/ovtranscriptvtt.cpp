#include "transcript/ovtranscriptvtt.h"

#include "project/ovreadbudget.h"
#include "transcript/ovsubtitletext.h"

#include <QObject>
#include <QRegularExpression>

QString OVTranscriptVtt::escape(const QString &text)
{
    QString out = text;
    out.replace(QLatin1Char('&'), QLatin1String("&amp;"));
    out.replace(QLatin1Char('<'), QLatin1String("&lt;"));
    out.replace(QLatin1Char('>'), QLatin1String("&gt;"));
    return out;
}

QString OVTranscriptVtt::plainText(const QString &cue, QString *speaker)
{
    static const QRegularExpression voice(QStringLiteral("<v(?:\\.[^ \\t>]*)?[ \\t]+([^>]*)>"));
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    speaker->clear();
    const QRegularExpressionMatch m = voice.match(cue);
    if (m.hasMatch())
        *speaker = m.captured(1).trimmed();
    QString text = cue;
    text.remove(tag);
    text.replace(QLatin1String("&lt;"), QLatin1String("<"));
    text.replace(QLatin1String("&gt;"), QLatin1String(">"));
    text.replace(QLatin1String("&nbsp;"), QString(QChar(0xA0)));
    text.replace(QLatin1String("&lrm;"), QString(QChar(0x200E)));
    text.replace(QLatin1String("&rlm;"), QString(QChar(0x200F)));
    // Last, so that "&amp;lt;" stays "&lt;".
    text.replace(QLatin1String("&amp;"), QLatin1String("&"));
    speaker->replace(QLatin1String("&lt;"), QLatin1String("<"));
    speaker->replace(QLatin1String("&gt;"), QLatin1String(">"));
    speaker->replace(QLatin1String("&amp;"), QLatin1String("&"));
    return text;
}

QByteArray OVTranscriptVtt::write(const OVTranscriptData &data)
{
    QString out = QStringLiteral("WEBVTT\n\n");
    int index = 0;
    for (const OVTranscriptData::Row &r : data.rows) {
        out += QString::number(++index) + QLatin1Char('\n');
        out += OVSubtitleText::formatTime(r.start, QLatin1Char('.')) + QLatin1String(" --> ")
            + OVSubtitleText::formatTime(r.end, QLatin1Char('.')) + QLatin1Char('\n');
        const QString text = escape(OVSubtitleText::cueText(r.text));
        out += (r.tier.isEmpty() ? text : QStringLiteral("<v %1>").arg(escape(r.tier).simplified()) + text) + QLatin1String("\n\n");
    }
    return out.toUtf8();
}

bool OVTranscriptVtt::read(const QByteArray &bytes, OVTranscriptData *data, OVTranscriptReport *report,
    OVReadBudget *budget, QString *why)
{
    QString text;
    if (!OVTranscriptInput::decode(bytes, &text, why))
        return false;
    static const QRegularExpression signature(QStringLiteral("^WEBVTT(?:[ \\t].*)?$"));
    const QList<OVSubtitleText::Block> blocks = OVSubtitleText::blocks(text);
    if (blocks.isEmpty() || blocks.first().line != 1 || !signature.match(blocks.first().lines.first()).hasMatch()) {
        *why = QObject::tr("line 1: a WebVTT file begins with \"WEBVTT\"");
        return false;
    }
    static const QRegularExpression nonCue(QStringLiteral("^(?:NOTE|STYLE|REGION)(?:[ \\t].*)?$"));
    QList<OVTranscriptData::Row> rows;
    OVTranscriptReport result;
    for (qsizetype i = 1; i < blocks.size(); ++i) {
        const OVSubtitleText::Block &b = blocks.at(i);
        if (nonCue.match(b.lines.first()).hasMatch())
            continue;
        const int timing = b.lines.first().contains(QLatin1String("-->")) ? 0 : 1;
        if (timing >= b.lines.size()) {
            *why = QObject::tr("line %1: a cue identifier without a cue timing").arg(b.line);
            return false;
        }
        OVTranscriptData::Row row;
        QString problem;
        if (!OVSubtitleText::parseTiming(b.lines.at(timing), &row.start, &row.end, true, &problem)) {
            *why = QObject::tr("line %1: %2").arg(b.line + timing).arg(problem);
            return false;
        }
        const QString cue = b.lines.mid(timing + 1).join(QLatin1Char('\n'));
        if (cue.size() > OVTranscriptInput::MaxFieldChars) {
            *why = QObject::tr("line %1: the cue's text is longer than %2 characters").arg(b.line).arg(OVTranscriptInput::MaxFieldChars);
            return false;
        }
        row.text = plainText(cue, &row.tier);
        if (row.text.trimmed().isEmpty()) {
            result.skip(QObject::tr("line %1: a cue without text").arg(b.line));
            continue;
        }
        if (!OVTranscriptInput::takeRow(budget, b.line, why))
            return false;
        rows.append(row);
    }
    return OVTranscriptInput::finish(rows, result, data, report);
}
