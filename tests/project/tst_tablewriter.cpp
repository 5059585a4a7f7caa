#include "project/ovtablewriter.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include "project/ovzipreader.h"

#include <limits>

namespace {

OVTable sample()
{
    return OVTable::fromRows(QStringLiteral("Stats: A/B [1]"),
        {{QStringLiteral("Label"), OVTable::Text}, {QStringLiteral("Count"), OVTable::Integer},
            {QStringLiteral("Share"), OVTable::Number}, {QStringLiteral("Total"), OVTable::Duration}},
        {{QStringLiteral("Smile, big"), 3, 0.25, 3661.5},
            {QStringLiteral("Said \"hi\"\nthen left"), 0, std::numeric_limits<double>::quiet_NaN(), QVariant()},
            {QStringLiteral("Lächeln"), 12, 1.0 / 3.0, 12.0}});
}

QByteArray zipMember(const QString &zipPath, const QString &member)
{
    QFile file(zipPath);
    OVZipReader zip(&file);
    if (!file.open(QIODevice::ReadOnly) || !zip.open() || !zip.locate(member) || !zip.openMember())
        return QByteArray();
    QByteArray data;
    char buffer[4096];
    for (qint64 n; (n = zip.read(buffer, sizeof buffer)) > 0;)
        data.append(buffer, qsizetype(n));
    return zip.closeMember() ? data : QByteArray();
}

// The <c> element of one cell in a sheet's XML, or empty.
QString cell(const QByteArray &sheet, const QString &ref)
{
    const QRegularExpression re(QStringLiteral("<c r=\"%1\"[^>]*(/>|>.*?</c>)").arg(ref));
    return re.match(QString::fromUtf8(sheet)).captured(0);
}

} // namespace

class TestTableWriter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void csvFields_data();
    void csvFields();
    void csvText();
    void xlsxReadBack();
    void cancelLeavesNoFile();
    void sheetNames_data();
    void sheetNames();

private:
    QTemporaryDir m_dir;
};

void TestTableWriter::csvFields_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("field");
    QTest::newRow("quote") << "say \"hi\"" << "\"say \"\"hi\"\"\"";
    QTest::newRow("line feed") << "one\ntwo" << "\"one\ntwo\"";
    QTest::newRow("carriage return") << "one\rtwo" << "\"one\rtwo\"";
    QTest::newRow("spaces kept") << " lead" << " lead";
}

void TestTableWriter::csvFields()
{
    QFETCH(QString, text);
    QTEST(OVTableWriter::csvField(text), "field");
}

void TestTableWriter::csvText()
{
    const QByteArray expected = "\xEF\xBB\xBF"
                                "Label,Count,Share,Total\r\n"
                                "\"Smile, big\",3,0.25,3661.500\r\n"
                                "\"Said \"\"hi\"\"\nthen left\",0,,\r\n"
                                "Lächeln,12,0.333333,12.000\r\n";
    QCOMPARE(OVTableWriter::csv(sample()), expected);
    QVERIFY(!OVTableWriter::csv(sample(), false).startsWith("\xEF\xBB\xBF"));

    const QString path = m_dir.filePath(QStringLiteral("t.csv"));
    int calls = 0;
    QVERIFY(OVTableWriter::writeCsv(sample(), path, [&](qint64, qint64) { return ++calls > 0; }).isOk());
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), expected);
    QVERIFY(calls > 0);
}

void TestTableWriter::xlsxReadBack()
{
    const QString path = m_dir.filePath(QStringLiteral("t.xlsx"));
    OVTable second = sample();
    second.name = QStringLiteral("stats: a/b [1]");
    QVERIFY(OVTableWriter::writeXlsx({sample(), second}, path).isOk());

    const QByteArray workbook = zipMember(path, QStringLiteral("xl/workbook.xml"));
    QVERIFY2(workbook.contains("name=\"Stats_ A_B _1_\""), workbook.constData());
    QVERIFY2(workbook.contains("name=\"stats_ a_b _1_ (2)\""), workbook.constData());

    const QByteArray sheet = zipMember(path, QStringLiteral("xl/worksheets/sheet1.xml"));
    QVERIFY(!sheet.isEmpty());
    // The header row stays in view while scrolling.
    QVERIFY(sheet.contains("ySplit=\"1\"") && sheet.contains("state=\"frozen\""));
    // Numbers are numbers, durations are days under a time format, text is text.
    QVERIFY2(cell(sheet, QStringLiteral("B2")).contains(QStringLiteral("<v>3</v>")), qPrintable(cell(sheet, "B2")));
    QVERIFY(!cell(sheet, QStringLiteral("B2")).contains(QStringLiteral("t=\"")));
    const QString duration = cell(sheet, QStringLiteral("D2"));
    QVERIFY2(duration.contains(QStringLiteral("s=\"")), qPrintable(duration));
    const QRegularExpressionMatch v = QRegularExpression(QStringLiteral("<v>([^<]+)</v>")).match(duration);
    QVERIFY(v.hasMatch());
    QCOMPARE(v.captured(1).toDouble(), 3661.5 / 86400.0);
    QVERIFY(cell(sheet, QStringLiteral("A4")).contains(QStringLiteral("Lächeln")));
    // Undefined figures are empty cells, not zeros.
    QVERIFY(cell(sheet, QStringLiteral("C3")).isEmpty());
    QVERIFY(cell(sheet, QStringLiteral("D3")).isEmpty());
    const QByteArray styles = zipMember(path, QStringLiteral("xl/styles.xml"));
    QVERIFY(styles.contains("[h]:mm:ss.000"));
}

void TestTableWriter::cancelLeavesNoFile()
{
    OVTable big;
    big.name = QStringLiteral("Big");
    big.columns = {{QStringLiteral("N"), OVTable::Integer}};
    big.rowCount = 20000;
    big.row = [](qint64 i, QVariantList &cells) { cells = {i}; };
    const QString xlsx = m_dir.filePath(QStringLiteral("cancel.xlsx"));
    const QString csv = m_dir.filePath(QStringLiteral("cancel.csv"));
    auto stop = [](qint64 done, qint64) { return done < 8000; };
    QCOMPARE(OVTableWriter::writeXlsx({big}, xlsx, stop).code(), 2);
    QCOMPARE(OVTableWriter::writeCsv(big, csv, stop).code(), 2);
    QVERIFY(!QFile::exists(xlsx));
    QVERIFY(!QFile::exists(csv));
    QCOMPARE(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden).filter(QStringLiteral("cancel")), QStringList());
}

void TestTableWriter::sheetNames_data()
{
    QTest::addColumn<QString>("wanted");
    QTest::addColumn<QStringList>("taken");
    QTest::addColumn<QString>("name");
    QTest::newRow("kept") << "Statistics" << QStringList() << "Statistics";
    QTest::newRow("forbidden characters") << "a:b/c\\d?e*f[g]" << QStringList() << "a_b_c_d_e_f_g_";
    QTest::newRow("too long") << QString(40, QLatin1Char('x')) << QStringList() << QString(31, QLatin1Char('x'));
    QTest::newRow("taken, any case") << "Data" << QStringList {"data"} << "Data (2)";
    QTest::newRow("long and taken") << QString(31, QLatin1Char('y')) << QStringList {QString(31, QLatin1Char('y'))}
                                    << QString(27, QLatin1Char('y')) + " (2)";
    QTest::newRow("empty") << "" << QStringList() << "Sheet";
}

void TestTableWriter::sheetNames()
{
    QFETCH(QString, wanted);
    QFETCH(QStringList, taken);
    QTEST(OVTableWriter::sheetName(wanted, taken), "name");
}

QTEST_APPLESS_MAIN(TestTableWriter)
#include "tst_tablewriter.moc"
