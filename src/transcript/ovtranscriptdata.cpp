#include "transcript/ovtranscriptdata.h"

#include "log/ovtimeformat.h"
#include "project/ovreadbudget.h"

#include <QLocale>
#include <QObject>
#include <QStringDecoder>

#include <cmath>

QString OVTranscriptReport::summary() const
{
    QString text = QObject::tr("%n utterances or segments read", nullptr, int(read));
    if (skipped > 0)
        text += QObject::tr(", %n left out", nullptr, int(skipped));
    return text;
}

bool OVTranscriptInput::decode(const QByteArray &bytes, QString *text, QString *why)
{
    if (bytes.size() > MaxFileBytes) {
        *why = QObject::tr("the file is larger than %1 MB").arg(MaxFileBytes >> 20);
        return false;
    }
    const auto encoding = QStringConverter::encodingForData(bytes);
    QStringDecoder decoder(encoding.value_or(QStringConverter::Utf8), QStringConverter::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError()) {
        *why = QObject::tr("the file is not UTF-8 or UTF-16 text");
        return false;
    }
    if (decoded.startsWith(QChar(0xFEFF)))
        decoded.remove(0, 1);
    if (decoded.contains(QChar(0))) {
        *why = QObject::tr("the file holds binary data");
        return false;
    }
    *text = decoded;
    return true;
}

bool OVTranscriptInput::parseSeconds(const QString &text, double *seconds)
{
    const QString t = text.trimmed();
    bool ok = false;
    double value = QLocale::c().toDouble(t, &ok);
    if (!ok && !OVTimeFormat::parse(t, &value))
        return false;
    if (!std::isfinite(value) || value < 0.0 || value > 1e9)
        return false;
    *seconds = value;
    return true;
}

double OVTranscriptInput::toMilliseconds(double seconds) { return std::round(seconds * 1000.0) / 1000.0; }

bool OVTranscriptInput::takeRows(OVReadBudget *budget, qint64 count, QString *why)
{
    if (!budget || budget->takeUtterances(count))
        return true;
    *why = budget->why();
    return false;
}

bool OVTranscriptInput::takeRow(OVReadBudget *budget, int line, QString *why)
{
    if (takeRows(budget, 1, why))
        return true;
    *why = QObject::tr("line %1: %2").arg(line).arg(*why);
    return false;
}

bool OVTranscriptInput::finish(const QList<OVTranscriptData::Row> &rows, OVTranscriptReport result, OVTranscriptData *data,
    OVTranscriptReport *report)
{
    result.read = rows.size();
    data->rows = rows;
    if (report)
        *report = result;
    return true;
}
