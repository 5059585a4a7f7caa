#include "project/ovtablewriter.h"

#include "project/ovprojectlogging.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <xlsxwriter.h>

#include <cmath>

namespace {

constexpr qint64 ProgressEvery = 4096;
// Spreadsheets count time in days.
constexpr double SecondsPerDay = 86400.0;

bool isEmptyCell(const QVariant &value)
{
    if (value.isNull() || !value.isValid())
        return true;
    const int type = value.metaType().id();
    if (type == QMetaType::Double || type == QMetaType::Float)
        return !std::isfinite(value.toDouble());
    return false;
}

QString numberText(double value)
{
    // Enough digits to read the value back, without the noise of a binary fraction.
    QString text = QString::number(value, 'f', 6);
    if (text.contains(QLatin1Char('.'))) {
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
        if (text.endsWith(QLatin1Char('.')))
            text.chop(1);
    }
    if (text == QLatin1String("-0"))
        text = QStringLiteral("0");
    return text;
}

QString fileError(const QString &path, const QString &reason)
{
    return QStringLiteral("Failed to write %1:\n%2").arg(QDir::toNativeSeparators(path), reason);
}

} // namespace

QByteArray OVTableWriter::headerLine(const OVTable &table)
{
    QStringList fields;
    for (const OVTable::Column &c : table.columns)
        fields << csvField(c.title);
    return (fields.join(QLatin1Char(',')) + QLatin1String("\r\n")).toUtf8();
}

QByteArray OVTableWriter::rowLine(const OVTable &table, qint64 index, QVariantList &cells)
{
    table.row(index, cells);
    QStringList fields;
    for (int c = 0; c < table.columns.size(); ++c)
        fields << csvField(cellText(cells.value(c), table.columns.at(c).kind));
    return (fields.join(QLatin1Char(',')) + QLatin1String("\r\n")).toUtf8();
}

QString OVTableWriter::csvField(const QString &text)
{
    const bool quote = text.contains(QLatin1Char(',')) || text.contains(QLatin1Char('"'))
        || text.contains(QLatin1Char('\n')) || text.contains(QLatin1Char('\r'));
    if (!quote)
        return text;
    QString quoted = text;
    quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

QString OVTableWriter::cellText(const QVariant &value, OVTable::Kind kind)
{
    if (isEmptyCell(value))
        return QString();
    switch (kind) {
    case OVTable::Text:
        return value.toString();
    case OVTable::Integer:
        return QString::number(value.toLongLong());
    case OVTable::Number:
        return numberText(value.toDouble());
    case OVTable::Duration:
        return QString::number(value.toDouble(), 'f', 3);
    }
    return value.toString();
}

QByteArray OVTableWriter::csv(const OVTable &table, bool byteOrderMark)
{
    QByteArray bytes = byteOrderMark ? QByteArray("\xEF\xBB\xBF") : QByteArray();
    bytes += headerLine(table);
    QVariantList cells;
    for (qint64 r = 0; r < table.rowCount; ++r)
        bytes += rowLine(table, r, cells);
    return bytes;
}

OV::Error OVTableWriter::writeCsv(const OVTable &table, const QString &path, const Progress &progress)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return OV::Error(1, fileError(path, file.errorString()));
    QByteArray chunk = QByteArray("\xEF\xBB\xBF") + headerLine(table);
    QVariantList cells;
    for (qint64 r = 0; r < table.rowCount; ++r) {
        chunk += rowLine(table, r, cells);
        if ((r + 1) % ProgressEvery == 0) {
            if (file.write(chunk) != chunk.size())
                return OV::Error(1, fileError(path, file.errorString()));
            chunk.clear();
            if (progress && !progress(r + 1, table.rowCount)) {
                file.cancelWriting();
                return OV::Error(2, QStringLiteral("Canceled by user"));
            }
        }
    }
    if (file.write(chunk) != chunk.size() || !file.commit())
        return OV::Error(1, fileError(path, file.errorString()));
    if (progress)
        progress(table.rowCount, table.rowCount);
    return OV::Error();
}

QString OVTableWriter::sheetName(const QString &wanted, const QStringList &taken)
{
    QString base = wanted;
    for (const QChar bad : QStringLiteral("[]:*?/\\"))
        base.replace(bad, QLatin1Char('_'));
    base = base.trimmed();
    if (base.startsWith(QLatin1Char('\'')))
        base.remove(0, 1);
    if (base.endsWith(QLatin1Char('\'')))
        base.chop(1);
    if (base.isEmpty())
        base = QStringLiteral("Sheet");
    base.truncate(31);
    auto isTaken = [&taken](const QString &name) {
        for (const QString &t : taken)
            if (t.compare(name, Qt::CaseInsensitive) == 0)
                return true;
        return false;
    };
    QString name = base;
    for (int n = 2; isTaken(name); ++n) {
        const QString suffix = QStringLiteral(" (%1)").arg(n);
        name = base.left(31 - suffix.size()) + suffix;
    }
    return name;
}

OV::Error OVTableWriter::writeXlsx(const QList<OVTable> &tables, const QString &path, const Progress &progress)
{
    // libxlsxwriter writes the final file itself; write beside the target and rename, so that a
    // failed or cancelled export never leaves half a workbook under the user's name.
    const QFileInfo target(path);
    const QString temporary = target.absolutePath() + QStringLiteral("/.") + target.fileName()
        + QStringLiteral(".part");
    QFile::remove(temporary);
    const QByteArray tempDir = QDir::tempPath().toLocal8Bit();
    lxw_workbook_options options = {};
    options.constant_memory = LXW_TRUE;
    options.tmpdir = const_cast<char *>(tempDir.constData());
    options.use_zip64 = LXW_TRUE;
    lxw_workbook *book = workbook_new_opt(temporary.toLocal8Bit().constData(), &options);
    if (!book)
        return OV::Error(1, fileError(path, QStringLiteral("the file cannot be created")));

    lxw_format *header = workbook_add_format(book);
    format_set_bold(header);
    lxw_format *duration = workbook_add_format(book);
    format_set_num_format(duration, "[h]:mm:ss.000");

    qint64 total = 0;
    for (const OVTable &t : tables)
        total += t.rowCount;
    qint64 done = 0;
    bool cancelled = false;
    QStringList names;
    QVariantList cells;
    for (const OVTable &table : tables) {
        const QString name = sheetName(table.name, names);
        names << name;
        lxw_worksheet *sheet = workbook_add_worksheet(book, name.toUtf8().constData());
        if (!sheet) {
            workbook_close(book);
            QFile::remove(temporary);
            return OV::Error(1, fileError(path, QStringLiteral("sheet \"%1\" cannot be added").arg(name)));
        }
        worksheet_freeze_panes(sheet, 1, 0);
        for (int c = 0; c < table.columns.size(); ++c) {
            const OVTable::Kind kind = table.columns.at(c).kind;
            const double width = kind == OVTable::Text ? 18 : 12;
            worksheet_set_column(sheet, lxw_col_t(c), lxw_col_t(c), width, kind == OVTable::Duration ? duration : nullptr);
            worksheet_write_string(sheet, 0, lxw_col_t(c), table.columns.at(c).title.toUtf8().constData(), header);
        }
        for (qint64 r = 0; r < table.rowCount && !cancelled; ++r) {
            table.row(r, cells);
            const lxw_row_t row = lxw_row_t(r + 1);
            for (int c = 0; c < table.columns.size(); ++c) {
                const QVariant &value = cells.value(c);
                if (isEmptyCell(value))
                    continue;
                const lxw_col_t col = lxw_col_t(c);
                switch (table.columns.at(c).kind) {
                case OVTable::Text: {
                    const QString text = value.toString();
                    if (!text.isEmpty())
                        worksheet_write_string(sheet, row, col, text.toUtf8().constData(), nullptr);
                    break;
                }
                case OVTable::Integer:
                case OVTable::Number:
                    worksheet_write_number(sheet, row, col, value.toDouble(), nullptr);
                    break;
                case OVTable::Duration:
                    worksheet_write_number(sheet, row, col, value.toDouble() / SecondsPerDay, duration);
                    break;
                }
            }
            ++done;
            if (progress && done % ProgressEvery == 0 && !progress(done, total))
                cancelled = true;
        }
        if (cancelled)
            break;
    }
    const lxw_error closed = workbook_close(book);
    if (cancelled) {
        QFile::remove(temporary);
        return OV::Error(2, QStringLiteral("Canceled by user"));
    }
    if (closed != LXW_NO_ERROR) {
        qCWarning(lcProject) << "Writing workbook" << path << "failed:" << lxw_strerror(closed);
        QFile::remove(temporary);
        return OV::Error(1, fileError(path, QString::fromUtf8(lxw_strerror(closed))));
    }
    QFile::remove(path);
    if (!QFile::rename(temporary, path)) {
        QFile::remove(temporary);
        return OV::Error(1, fileError(path, QStringLiteral("the file cannot be replaced")));
    }
    if (progress)
        progress(total, total);
    return OV::Error();
}
