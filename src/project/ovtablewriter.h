#pragma once

#include "log/overror.h"
#include "project/ovtable.h"

#include <functional>

// Writes tables for spreadsheet programs: CSV after RFC 4180 (UTF-8 with a byte order mark so
// that spreadsheet programs take it as UTF-8, CRLF line ends) and XLSX workbooks with one sheet
// per table, typed cells and a frozen header row. Workbooks are written in libxlsxwriter's
// constant-memory mode, so memory stays flat whatever the number of rows.
class OVTableWriter
{
public:
    // Called every few thousand rows with the rows written so far and the total; returning false
    // cancels, and the partial file is removed.
    using Progress = std::function<bool(qint64 done, qint64 total)>;

    static OV::Error writeCsv(const OVTable &table, const QString &path, const Progress &progress = {});
    // The CSV text of a table, with or without the byte order mark (clipboard text has none).
    static QByteArray csv(const OVTable &table, bool byteOrderMark = true);
    static OV::Error writeXlsx(const QList<OVTable> &tables, const QString &path, const Progress &progress = {});

    // One CSV field: quoted when it holds a comma, a quote or a line break, quotes doubled.
    static QString csvField(const QString &text);
    // The text a cell gets in CSV: numbers in the C locale, durations with three decimals, an
    // empty field for null and NaN.
    static QString cellText(const QVariant &value, OVTable::Kind kind);
    // A sheet name spreadsheet programs accept: at most 31 characters, none of []:*?/\, not
    // empty, and not equal (ignoring case) to one in `taken`.
    static QString sheetName(const QString &wanted, const QStringList &taken);

private:
    static QByteArray headerLine(const OVTable &table);
    static QByteArray rowLine(const OVTable &table, qint64 index, QVariantList &cells);
};
