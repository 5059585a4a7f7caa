#include "project/label.h"
#include "project/ovjsonserializer.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "clirun.h"
#include <QTemporaryDir>
#include <QTest>

using namespace OVProject;

namespace {

void makeProject(Project *p)
{
    Timeline *t = p->startNew(QStringLiteral("anna"));
    p->setTitle(QStringLiteral("Dump me \u00e9"));
    Label *l = t->labels().first();
    l->addSegment(new Segment(12.3456, Segment::OpenEnd, QStringLiteral("s1")));
    t->setBinaryData(QStringLiteral("drawings"), QByteArray(1000, 'd'));
    p->createTimeline(QStringLiteral("bert"));
}
} // namespace

class TestCli : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY2(QFile::exists(qEnvironmentVariable("KAVOT_BUILD_DIR") + QStringLiteral("/src/cli/kavot-cli")),
            "kavot-cli not built");
    }

    void dumpProject_data()
    {
        QTest::addColumn<bool>("compress");
        QTest::newRow("compressed") << true;
        QTest::newRow("plain") << false;
    }

    void dumpProject()
    {
        QFETCH(bool, compress);
        Project p;
        makeProject(&p);
        const QString path = m_dir.filePath(QStringLiteral("dump.kvpr"));
        OVLocalFileStorage storage;
        storage.setCompression(compress);
        QVERIFY(storage.save(path, &p).isOk());

        const CliRun r = runCli({ QStringLiteral("dump"), path });
        QCOMPARE(r.code, 0);
        // The timeline documents pass through as the serializer wrote them; binary data shrinks to a size.
        QJsonParseError error;
        const QJsonObject root = QJsonDocument::fromJson(r.out, &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(root.keys(), (QStringList { QStringLiteral("project"), QStringLiteral("timelines") }));
        const QJsonObject project = root.value(QLatin1String("project")).toObject();
        QCOMPARE(project.value(QLatin1String("title")).toString(), p.title());
        const QJsonArray timelines = root.value(QLatin1String("timelines")).toArray();
        QCOMPARE(timelines.size(), 2);
        const QJsonObject first = timelines.at(0).toObject();
        QCOMPARE(first.value(QLatin1String("id")).toString(), p.timelineIds().first());
        QCOMPARE(timelines.at(1).toObject().value(QLatin1String("owner")).toString(), QStringLiteral("bert"));
        const QJsonObject segment
            = first["labels"].toArray().at(0).toObject()["segments"].toArray().at(0).toObject();
        QCOMPARE(segment.value(QLatin1String("start")).toString(), QStringLiteral("12.346"));
        QCOMPARE(segment.value(QLatin1String("end")).toString(), QStringLiteral("2147483647.000"));
        const QJsonObject binary = first["binary_data"].toArray().at(0).toObject();
        QCOMPARE(binary["key"].toString(), QStringLiteral("drawings"));
        QCOMPARE(binary["size"].toInt(), 1000);
        QVERIFY(!binary.contains(QLatin1String("data")));
    }

    void checkReports_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes"); // empty: a sound file saved by the storage
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message"); // %1: the path
        QTest::newRow("sound project") << "ok.kvpr" << QByteArray() << 0 << "ok";
        QTest::newRow("sound label set") << "ok.kvtl" << QByteArray() << 0 << "ok";
        QTest::newRow("garbage project") << "bad.kvpr" << QByteArray("hello world") << 1
                                         << "Failed to load project from:\n%1\n\nneither an OV1 container nor a ZIP archive";
        QTest::newRow("missing project") << "missing.kvpr" << QByteArray("-") << 1
                                         << "Failed to load project from:\n%1\n\nNo such file or directory";
        QTest::newRow("label set without labels")
            << "bad.kvtl" << QByteArray("{\"x\":1}") << 1 << "Failed to load labels from:\n%1\n\nhas no \"labels\"";
        // Parses as JSON, so a dump that only parsed used to show it.
        QTest::newRow("label set with a broken end")
            << "end.kvtl" << QByteArray("{\"labels\":[{\"id\":\"l\",\"segments\":[{\"id\":\"s\",\"start\":\"1\",\"end\":\"x\"}]}]}")
            << 1
            << "Failed to load labels from:\n%1\n\nlabel 1 (id \"l\"), segment 1 (id \"s\"): \"end\" is not a time in seconds: \"x\"";
    }

    void checkReports()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(int, code);
        QFETCH(QString, message);
        const QString path = m_dir.filePath(name);
        if (message.contains(QLatin1String("%1")))
            message = message.arg(path);
        QFile::remove(path);
        if (bytes.isEmpty() && code == 0) {
            Project p;
            makeProject(&p);
            if (name.endsWith(QLatin1String(".kvtl")))
                QVERIFY(OVJsonSerializer()
                            .saveLabelSetFile(path, p.timelineGroup()->timelines().first()->labels())
                            .isOk());
            else
                QVERIFY(OVLocalFileStorage().save(path, &p).isOk());
        } else if (bytes != "-") {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(bytes);
        }
        const CliRun r = runCli({ QStringLiteral("check"), path });
        QCOMPARE(r.code, code);
        QCOMPARE(QString::fromUtf8(r.out).trimmed(), message);
        // dump reads through the same reader: it refuses exactly what check refuses.
        const CliRun d = runCli({ QStringLiteral("dump"), path });
        QCOMPARE(d.code, code);
        if (code != 0)
            QCOMPARE(QString::fromUtf8(d.err).trimmed(), message);
        else
            QVERIFY2(d.out.contains("\"12.346\""), d.out.constData()); // the segment, times as written
    }

    void usageErrors()
    {
        QCOMPARE(runCli({}).code, 2);
        QCOMPARE(runCli({ QStringLiteral("frobnicate") }).code, 2);
        QCOMPARE(runCli({ QStringLiteral("dump") }).code, 2);
        QCOMPARE(runCli({ QStringLiteral("check"), QStringLiteral("a"), QStringLiteral("b") }).code, 2);
        const CliRun help = runCli({ QStringLiteral("--help") });
        QCOMPARE(help.code, 0);
        QVERIFY(help.err.contains("dump") && help.err.contains("check"));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestCli)
#include "tst_cli.moc"
