#include "transcript/ovtranscriptclipboard.h"

#include "log/ovtimeformat.h"
#include "project/utterance.h"

#include <QCoreApplication>
#include <QStringList>

using OVProject::Utterance;

QString OVTranscriptClipboard::plainText(const QList<const Utterance *> &utterances)
{
    QStringList lines;
    for (const Utterance *u : utterances) {
        QString text = u->text();
        text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        text.replace(QLatin1Char('\n'), QLatin1String("\n\t"));
        lines.append(QStringLiteral("%1 - %2\t%3: %4")
                         .arg(OVTimeFormat::format(u->startTime()), OVTimeFormat::format(u->endTime()), u->speaker(), text));
    }
    return lines.join(QLatin1Char('\n')) + (lines.isEmpty() ? QString() : QStringLiteral("\n"));
}

QString OVTranscriptClipboard::htmlTable(const QList<const Utterance *> &utterances)
{
    auto cell = [](const QString &text) {
        QString escaped = text.toHtmlEscaped();
        escaped.replace(QLatin1String("\r\n"), QLatin1String("\n"));
        escaped.replace(QLatin1Char('\n'), QLatin1String("<br>"));
        return QStringLiteral("<td>%1</td>").arg(escaped);
    };
    QString html = QStringLiteral("<html><head><meta charset=\"utf-8\"></head><body><table border=\"1\">\n<tr>");
    for (const char *title : { "Start", "End", "Speaker", "Text" })
        html += QStringLiteral("<th>%1</th>").arg(QCoreApplication::translate("OVTranscriptModel", title));
    html += QStringLiteral("</tr>\n");
    for (const Utterance *u : utterances) {
        html += QStringLiteral("<tr>") + cell(OVTimeFormat::format(u->startTime())) + cell(OVTimeFormat::format(u->endTime()))
            + cell(u->speaker()) + cell(u->text()) + QStringLiteral("</tr>\n");
    }
    html += QStringLiteral("</table></body></html>\n");
    return html;
}
