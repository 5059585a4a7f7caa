#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <functional>

// One table of an export (a sheet of a workbook, a CSV file). Rows are produced on demand by
// `row`, so that a writer can stream a hundred thousand rows without holding them all.
class OVTable
{
public:
    enum Kind {
        Text,
        Integer,
        Number,
        // Seconds: three decimals in CSV, a time of day count in spreadsheets ("[h]:mm:ss.000").
        Duration,
    };
    struct Column
    {
        QString title;
        Kind kind = Text;
    };

    QString name;
    QList<Column> columns;
    qint64 rowCount = 0;
    // Fills `cells` with the cells of row `index` (one per column). A null QVariant, or a NaN
    // number, is an empty cell: an undefined value must never read as 0.
    std::function<void(qint64 index, QVariantList &cells)> row;

    // A table over rows already in memory.
    static OVTable fromRows(const QString &name, const QList<Column> &columns, QList<QVariantList> rows)
    {
        OVTable table;
        table.name = name;
        table.columns = columns;
        table.rowCount = rows.size();
        table.row = [rows = std::move(rows)](qint64 index, QVariantList &cells) { cells = rows.at(index); };
        return table;
    }
};
