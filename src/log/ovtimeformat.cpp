#include "log/ovtimeformat.h"

#include <QStringList>
#include <cmath>

QString OVTimeFormat::format(double seconds, int fractionDigits)
{
    if (!std::isfinite(seconds))
        return QStringLiteral("--:--:--");
    fractionDigits = qBound(0, fractionDigits, 6);
    const bool negative = seconds < 0;
    double scale = std::pow(10.0, fractionDigits);
    // Work in whole units of the last shown digit so that carries propagate correctly.
    const qint64 units = qint64(std::llround(std::fabs(seconds) * scale));
    const qint64 unitsPerSecond = qint64(scale);
    const qint64 whole = units / unitsPerSecond;
    const qint64 fraction = units % unitsPerSecond;
    const qint64 h = whole / 3600;
    const qint64 m = (whole / 60) % 60;
    const qint64 s = whole % 60;

    QString text = QStringLiteral("%1:%2:%3")
                       .arg(h, 2, 10, QLatin1Char('0'))
                       .arg(m, 2, 10, QLatin1Char('0'))
                       .arg(s, 2, 10, QLatin1Char('0'));
    if (fractionDigits > 0)
        text += QLatin1Char('.') + QStringLiteral("%1").arg(fraction, fractionDigits, 10, QLatin1Char('0'));
    if (negative && units != 0)
        text.prepend(QLatin1Char('-'));
    return text;
}

bool OVTimeFormat::parse(const QString &input, double *seconds)
{
    QString text = input.trimmed();
    if (text.isEmpty())
        return false;
    bool negative = false;
    if (text.startsWith(QLatin1Char('-'))) {
        negative = true;
        text.remove(0, 1);
    }
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() > 3)
        return false;
    double total = 0;
    for (int i = 0; i < parts.size(); ++i) {
        bool ok = false;
        const bool last = i == parts.size() - 1;
        const double v = last ? parts[i].toDouble(&ok) : double(parts[i].toUInt(&ok));
        if (!ok || v < 0 || !std::isfinite(v))
            return false;
        if (!last && i > 0 && v >= 60)
            return false;
        if (last && parts.size() > 1 && v >= 60)
            return false;
        total = total * 60 + v;
    }
    if (seconds)
        *seconds = negative ? -total : total;
    return true;
}
