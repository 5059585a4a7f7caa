#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"

#include "clirun.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

using namespace OVProject;

// The analysis sub-commands end to end: a saved project in, the documented output out.
class TestCliAnalysis : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        Project p;
        Timeline *anna = p.startNew(QStringLiteral("anna"));
        Timeline *bert = p.createTimeline(QStringLiteral("bert"));
        p.setVideoLength(60.0);
        // Label 1 (A): anna 10-20 and 30-35, bert 11-20; an open segment of anna's is left out.
        anna->labels().at(0)->addSegment(new Segment(10.0, 20.0));
        anna->labels().at(0)->addSegment(new Segment(30.0, 35.0));
        anna->labels().at(0)->addSegment(new Segment(50.0, Segment::OpenEnd));
        bert->labels().at(0)->addSegment(new Segment(11.0, 20.0));
        anna->labels().at(1)->addSegment(new Segment(40.0, 41.0, QString(), nullptr));
        anna->labels().at(1)->segments().first()->setDescription(QStringLiteral("comma, and \"quote\""));
        m_project = m_dir.filePath(QStringLiteral("session 1.kvpr"));
        QVERIFY(OVLocalFileStorage().save(m_project, &p).isOk());
    }

    void stats()
    {
        const CliRun r = runCli({QStringLiteral("stats"), m_project, QStringLiteral("--format"), QStringLiteral("json")});
        QCOMPARE(r.code, 0);
        const QJsonArray rows = QJsonDocument::fromJson(r.out).array();
        QCOMPARE(rows.size(), 8); // two coders x four default labels
        const QJsonObject first = rows.at(0).toObject();
        QCOMPARE(first["project"].toString(), QStringLiteral("session 1"));
        QCOMPARE(first["coder"].toString(), QStringLiteral("anna"));
        QCOMPARE(first["count"].toInt(), 2);
        QCOMPARE(first["total_s"].toDouble(), 15.0);
        QCOMPARE(first["share"].toDouble(), 0.25);
        QCOMPARE(first["latency_s"].toDouble(), 10.0);
        // A label nobody used has no mean: null, not 0.
        QVERIFY(rows.at(2).toObject()["mean_s"].isNull());

        const CliRun window = runCli({QStringLiteral("stats"), m_project, QStringLiteral("--from"), QStringLiteral("15"),
            QStringLiteral("--to"), QStringLiteral("45"), QStringLiteral("--format"), QStringLiteral("json")});
        QCOMPARE(window.code, 0);
        const QJsonObject clipped = QJsonDocument::fromJson(window.out).array().at(0).toObject();
        QCOMPARE(clipped["total_s"].toDouble(), 10.0);
    }

    void agreement()
    {
        const CliRun r = runCli({QStringLiteral("agreement"), m_project, QStringLiteral("--coders"), QStringLiteral("anna"),
            QStringLiteral("bert"), QStringLiteral("--resolution"), QStringLiteral("1")});
        QCOMPARE(r.code, 0);
        const QJsonObject root = QJsonDocument::fromJson(r.out).object();
        const QJsonObject a = root["labels"].toArray().at(0).toObject();
        // 60 one-second slices: anna holds 15 (10-19, 30-34), bert 9 (11-19), both 9.
        const double po = (9.0 + 45.0) / 60.0;
        const double pe = (15.0 / 60) * (9.0 / 60) + (45.0 / 60) * (51.0 / 60);
        QVERIFY(qAbs(a["kappa"].toDouble() - (po - pe) / (1 - pe)) < 1e-9);
        QCOMPARE(a["percent"].toDouble(), 100.0 * po);
        QCOMPARE(a["matched"].toInt(), 1);
        QCOMPARE(a["missed"].toInt(), 1);
        QCOMPARE(a["extra"].toInt(), 0);
        QCOMPARE(a["mean_onset_diff_s"].toDouble(), 1.0);
    }

    void segments()
    {
        const CliRun r = runCli({QStringLiteral("segments"), m_project});
        QCOMPARE(r.code, 0);
        const QList<QByteArray> lines = r.out.split('\n');
        QCOMPARE(lines.first(), QByteArray("Project,Coder,Label,Key,Start,End,Duration,Description,Groups\r"));
        QVERIFY(r.out.contains("session 1,anna,Label 1,A,50.000,,,,\r\n"));
        QVERIFY(r.out.contains("session 1,anna,Label 2,B,40.000,41.000,1.000,\"comma, and \"\"quote\"\"\",\r\n"));

        const QString xlsx = m_dir.filePath(QStringLiteral("raw.xlsx"));
        QCOMPARE(runCli({QStringLiteral("segments"), m_project, QStringLiteral("--format"), QStringLiteral("xlsx"),
                     QStringLiteral("-o"), xlsx})
                     .code,
            0);
        QVERIFY(QFileInfo(xlsx).size() > 0);
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("one coder") << QStringList {"agreement", "@", "--coders", "anna"} << 2 << QByteArray("--coders A B");
        QTest::newRow("unknown coder") << QStringList {"agreement", "@", "--coders", "anna", "carl"} << 1
                                       << QByteArray("no coder 'carl'");
        QTest::newRow("window backwards") << QStringList {"stats", "@", "--from", "20", "--to", "10"} << 2
                                          << QByteArray("--to after --from");
        QTest::newRow("xlsx to stdout") << QStringList {"stats", "@", "--format", "xlsx"} << 2 << QByteArray("needs -o");
        QTest::newRow("unknown format") << QStringList {"segments", "@", "--format", "ods"} << 2 << QByteArray("unknown format");
        QTest::newRow("missing project") << QStringList {"stats", "/nonexistent/x.kvpr"} << 1
                                         << QByteArray("/nonexistent/x.kvpr");
    }

    void refusals()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, message);
        args.replaceInStrings(QStringLiteral("@"), m_project);
        const CliRun r = runCli(args);
        QTEST(r.code, "code");
        QVERIFY2(r.err.contains(message), r.err.constData());
    }

private:
    QTemporaryDir m_dir;
    QString m_project;
};

QTEST_GUILESS_MAIN(TestCliAnalysis)
#include "tst_clianalysis.moc"
