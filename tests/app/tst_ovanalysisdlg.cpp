#include "app/ovanalysischarts.h"
#include "app/ovanalysisdlg.h"
#include "app/ovanalysisexports.h"
#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QBarSet>
#include <QChart>
#include <QComboBox>
#include <QScatterSeries>
#include <QStackedBarSeries>
#include <QFile>
#include <QImage>
#include <QStandardItemModel>
#include <QTemporaryDir>
#include <QTest>

using namespace OVProject;

namespace {
// Two coders of a 60 s recording; label 1 coded 10-20 by anna and 12-20 by bert.
void fill(Project *p)
{
    Timeline *anna = p->startNew(QStringLiteral("anna"));
    Timeline *bert = p->createTimeline(QStringLiteral("bert"));
    p->setVideoLength(60.0);
    anna->labels().at(0)->addSegment(new Segment(10.0, 20.0));
    bert->labels().at(0)->addSegment(new Segment(12.0, 20.0));
    bert->labels().at(1)->addSegment(new Segment(30.0, 30.0));
}
} // namespace

class TestAnalysisDlg : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void figuresFollowTheChoices();
    void exports();
    void workshopSkipsUnreadable();
    void plotsUseLabelColours_data();
    void plotsUseLabelColours();

private:
    QTemporaryDir m_dir;
};

void TestAnalysisDlg::figuresFollowTheChoices()
{
    Project p;
    fill(&p);
    OVAnalysisDlg dialog(OVCodingSnapshot::fromProject(p, QStringLiteral("s1")));
    QStandardItemModel *stats = dialog.statisticsModel();
    QCOMPARE(stats->rowCount(), 8);
    QCOMPARE(stats->item(0, 1)->text(), QStringLiteral("anna"));
    QCOMPARE(stats->item(0, 7)->text(), QStringLiteral("10.000")); // total
    QCOMPARE(dialog.agreement().coderA, QStringLiteral("anna"));
    QCOMPARE(dialog.agreement().coderB, QStringLiteral("bert"));
    // 600 slices of 0.1 s: anna 100, bert 80, both 80.
    QCOMPARE(dialog.agreement().labels.first().slicesBoth, qint64(80));

    // Comparing a coder with themself is perfect agreement on every label used.
    dialog.findChild<QComboBox *>(QStringLiteral("cb_coderB"))->setCurrentIndex(0);
    QCOMPARE(dialog.agreement().coderB, QStringLiteral("anna"));
    QCOMPARE(dialog.agreement().labels.first().kappa, 1.0);
    QCOMPARE(dialog.agreementModel()->item(0, 2)->text(), QStringLiteral("1"));
}

void TestAnalysisDlg::exports()
{
    Project p;
    fill(&p);
    OVAnalysisDlg dialog(OVCodingSnapshot::fromProject(p, QStringLiteral("s1")));
    dialog.resize(800, 600);
    const QString xlsx = m_dir.filePath(QStringLiteral("tables.xlsx"));
    const QString csv = m_dir.filePath(QStringLiteral("stats.csv"));
    QVERIFY(dialog.exportTables(xlsx));
    QVERIFY(dialog.exportTables(csv));
    QFile file(csv);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains("s1,bert,,Label 2,B,1,0,0.000"));
    QVERIFY(QFileInfo(xlsx).size() > 0);

    for (const char *name : {"plot.png", "plot.svg"}) {
        const QString path = m_dir.filePath(QLatin1String(name));
        QVERIFY(dialog.exportPlot(path));
        QVERIFY(QFileInfo(path).size() > 0);
    }
    QVERIFY(!QImage(m_dir.filePath(QStringLiteral("plot.png"))).isNull());
    QFile svg(m_dir.filePath(QStringLiteral("plot.svg")));
    QVERIFY(svg.open(QIODevice::ReadOnly));
    QVERIFY(svg.readAll().contains("<svg"));

    OVCodingSnapshot snapshot = OVCodingSnapshot::fromProject(p, QStringLiteral("s1"));
    const QString raw = m_dir.filePath(QStringLiteral("raw.csv"));
    QVERIFY(OVAnalysisExports::rawData(nullptr, snapshot, raw).isOk());
    QFile rawFile(raw);
    QVERIFY(rawFile.open(QIODevice::ReadOnly));
    QCOMPARE(rawFile.readAll().count('\n'), 4); // header and three segments
}

void TestAnalysisDlg::workshopSkipsUnreadable()
{
    QStringList projects;
    for (const char *name : {"one.kvpr", "two.kvpr"}) {
        Project p;
        fill(&p);
        projects << m_dir.filePath(QLatin1String(name));
        QVERIFY(OVLocalFileStorage().save(projects.last(), &p).isOk());
    }
    const QString bogus = m_dir.filePath(QStringLiteral("bogus.kvpr"));
    QFile b(bogus);
    QVERIFY(b.open(QIODevice::WriteOnly) && b.write("not a project") > 0);
    b.close();
    projects.insert(1, bogus);

    const QString out = m_dir.filePath(QStringLiteral("workshop.csv"));
    QStringList skipped;
    QVERIFY(OVAnalysisExports::workshop(nullptr, projects, out, &skipped).isOk());
    QCOMPARE(skipped.size(), 1);
    QVERIFY(skipped.first().startsWith(bogus));
    QFile file(out);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    QCOMPARE(text.count('\n'), 1 + 16); // header, 2 projects x 2 coders x 4 labels
    QVERIFY(text.contains("\r\none,anna,,Label 1,A,1,0,10.000"));
    QVERIFY(text.contains("\r\ntwo,bert,,Label 1,A,1,0,8.000"));
}

void TestAnalysisDlg::plotsUseLabelColours_data()
{
    QTest::addColumn<int>("plot");
    QTest::addColumn<QString>("series");
    QTest::addColumn<QColor>("expected");

    QTest::newRow("time budget") << 0 << "Label 1" << QColor(Qt::blue);
    QTest::newRow("time budget, recoloured by the first coder") << 0 << "Label 2" << QColor(0xF3, 0x66, 0x2E);
    QTest::newRow("events") << 1 << "anna: Label 1" << QColor(Qt::blue);
    QTest::newRow("events, in the coder's own colour") << 1 << "bert: Label 2" << QColor(Qt::red);
    QTest::newRow("agreement") << 2 << "Label 2" << QColor(0xF3, 0x66, 0x2E);
    QTest::newRow("agreement, an invisible colour") << 2 << "Label 3" << QColor(Qt::gray);
}

void TestAnalysisDlg::plotsUseLabelColours()
{
    QFETCH(int, plot);
    QFETCH(QString, series);
    QFETCH(QColor, expected);

    Project p;
    fill(&p);
    Timeline *anna = p.timelineGroup()->timelines().first();
    anna->labels().at(1)->setColor(QColor(0xF3, 0x66, 0x2E));
    anna->labels().at(2)->setColor(Qt::transparent);
    const OVCodingSnapshot snapshot = OVCodingSnapshot::fromProject(p, QStringLiteral("s1"));
    std::unique_ptr<QChart> chart;
    if (plot == 0)
        chart.reset(OVAnalysisCharts::timeBudget(OVStatistics::compute(snapshot, {0.0, -1.0}, false), snapshot));
    else if (plot == 1)
        chart.reset(OVAnalysisCharts::eventPlot(snapshot, {QStringLiteral("anna"), QStringLiteral("bert")}));
    else
        chart.reset(OVAnalysisCharts::agreement(OVAgreement::compute(snapshot, snapshot.coders.at(0), snapshot.coders.at(1), {}), snapshot));

    QStringList seen;
    for (QAbstractSeries *s : chart->series()) {
        if (auto *scatter = qobject_cast<QScatterSeries *>(s)) {
            seen << scatter->name();
            if (scatter->name() == series)
                QCOMPARE(scatter->color(), expected);
        } else if (auto *bars = qobject_cast<QAbstractBarSeries *>(s)) {
            for (QBarSet *set : bars->barSets()) {
                seen << set->label();
                if (set->label() == series)
                    QCOMPARE(set->color(), expected);
            }
        }
    }
    QVERIFY2(seen.contains(series), qPrintable(seen.join(QLatin1Char(','))));
}

QTEST_MAIN(TestAnalysisDlg)
#include "tst_ovanalysisdlg.moc"
