#include "transcript/ovsubtitletext.h"

#include <QObject>
#include <QRegularExpression>

#include <cmath>

QList<OVSubtitleText::Block> OVSubtitleText::blocks(const QString &text)
{
    QList<Block> out;
    Block current;
    int lineNumber = 0;
    const QStringList lines = text.split(QRegularExpression(QStringLiteral("\r\n|\n|\r")));
    for (const QString &line : lines) {
        ++lineNumber;
        if (line.trimmed().isEmpty()) {
            if (!current.lines.isEmpty())
                out.append(current);
            current = Block();
            continue;
        }
        if (current.lines.isEmpty())
            current.line = lineNumber;
        current.lines.append(line);
    }
    if (!current.lines.isEmpty())
        out.append(current);
    return out;
}

bool OVSubtitleText::parseTime(const QString &text, double *seconds, bool hoursOptional)
{
    static const QRegularExpression pattern(QStringLiteral("^(?:(\\d{1,7}):)?(\\d{1,2}):(\\d{1,2})[,.](\\d{1,3})$"));
    const QRegularExpressionMatch m = pattern.match(text.trimmed());
    if (!m.hasMatch() || (!hoursOptional && m.captured(1).isEmpty()))
        return false;
    const int minutes = m.captured(2).toInt();
    const int secs = m.captured(3).toInt();
    if (minutes > 59 || secs > 59)
        return false;
    QString fraction = m.captured(4);
    while (fraction.size() < 3)
        fraction.append(QLatin1Char('0'));
    *seconds = m.captured(1).toDouble() * 3600.0 + minutes * 60.0 + secs + fraction.toInt() / 1000.0;
    return true;
}

bool OVSubtitleText::parseTiming(const QString &line, double *start, double *end, bool hoursOptional, QString *why)
{
    const qsizetype arrow = line.indexOf(QLatin1String("-->"));
    if (arrow < 0) {
        *why = QObject::tr("expected a cue timing such as \"00:00:01,000 --> 00:00:02,000\", found \"%1\"").arg(line.left(60));
        return false;
    }
    const QString from = line.left(arrow).trimmed();
    // Settings (WebVTT) or coordinates (some SubRip writers) may follow the end time.
    const QString to = line.mid(arrow + 3).trimmed().section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty);
    if (!parseTime(from, start, hoursOptional) || !parseTime(to, end, hoursOptional)) {
        *why = QObject::tr("\"%1\" is not a cue timing").arg(line.left(60));
        return false;
    }
    if (*end < *start) {
        *why = QObject::tr("the cue ends (%1) before it starts (%2)").arg(to, from);
        return false;
    }
    return true;
}

QString OVSubtitleText::formatTime(double seconds, QChar decimal)
{
    const qint64 ms = qint64(std::llround(std::max(0.0, seconds) * 1000.0));
    return QStringLiteral("%1:%2:%3%4%5")
        .arg(ms / 3'600'000, 2, 10, QLatin1Char('0'))
        .arg((ms / 60'000) % 60, 2, 10, QLatin1Char('0'))
        .arg((ms / 1000) % 60, 2, 10, QLatin1Char('0'))
        .arg(decimal)
        .arg(ms % 1000, 3, 10, QLatin1Char('0'));
}

QString OVSubtitleText::cueText(const QString &text)
{
    QStringList kept;
    for (const QString &line : text.split(QRegularExpression(QStringLiteral("\r\n|\n|\r")))) {
        if (!line.trimmed().isEmpty())
            kept.append(line);
    }
    return kept.join(QLatin1Char('\n'));
}

void OVSubtitleText::splitSpeaker(const QString &text, QString *speaker, QString *rest)
{
    // A name is short and on the first line; "Note: 3 p.m." is not told apart from a speaker,
    // which is the convention's price.
    const qsizetype colon = text.indexOf(QLatin1String(": "));
    const qsizetype newline = text.indexOf(QLatin1Char('\n'));
    if (colon > 0 && colon <= 40 && (newline < 0 || colon < newline)) {
        *speaker = text.left(colon).trimmed();
        *rest = text.mid(colon + 2);
        return;
    }
    speaker->clear();
    *rest = text;
}
