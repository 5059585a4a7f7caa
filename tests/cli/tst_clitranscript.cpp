#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include "clirun.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace OVProject;

// kavot-cli transcript and import end to end: a saved project out to a file and back in.
class TestCliTranscript : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        Project p;
        p.startNew(QStringLiteral("anna"));
        Timeline *bert = p.createTimeline(QStringLiteral("bert"));
        p.setVideoLength(60.0);
        for (const auto &[start, speaker, text] : { std::tuple { 1.0, "Ana", "hello, there" }, std::tuple { 3.5, "Bob", "ciao" } }) {
            auto *u = new Utterance(BaseNode::newId());
            u->setStartTime(start);
            u->setEndTime(start + 1.25);
            u->setSpeaker(QString::fromUtf8(speaker));
            u->setText(QString::fromUtf8(text));
            bert->addUtterance(u);
        }
        bert->labels().at(0)->addSegment(new Segment(10.0, 12.5, BaseNode::newId()));
        m_project = m_dir.filePath(QStringLiteral("p.kvpr"));
        QVERIFY(OVLocalFileStorage().save(m_project, &p).isOk());
        QFile damaged(m_dir.filePath(QStringLiteral("bad.csv")));
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write("Start,End,Speaker,Text\n1,2,Ana,\"x\"y\n");
    }

    void exportThenImport()
    {
        const QString eaf = m_dir.filePath(QStringLiteral("bert.eaf"));
        const CliRun out = runCli({ QStringLiteral("transcript"), m_project, QStringLiteral("--format"), QStringLiteral("eaf"),
            QStringLiteral("-o"), eaf, QStringLiteral("--coder"), QStringLiteral("bert") });
        QCOMPARE(out.code, 0);

        // Into anna's timeline: the utterances, then the segments into her label of the same name.
        QCOMPARE(runCli({ QStringLiteral("import"), m_project, eaf, QStringLiteral("--coder"), QStringLiteral("anna") }).code, 0);
        QCOMPARE(runCli({ QStringLiteral("import"), m_project, eaf, QStringLiteral("--coder"), QStringLiteral("anna"),
                     QStringLiteral("--as"), QStringLiteral("labels") }).code,
            0);

        Project back;
        QVERIFY(OVLocalFileStorage().load(m_project, &back).isOk());
        const Timeline *anna = nullptr;
        for (const Timeline *t : back.timelineGroup()->timelines())
            if (t->owner() == QLatin1String("anna"))
                anna = t;
        QVERIFY(anna);
        QCOMPARE(anna->utterances().size(), 2);
        QCOMPARE(anna->utterances().at(0)->text(), QStringLiteral("hello, there"));
        QCOMPARE(anna->utterances().at(1)->speaker(), QStringLiteral("Bob"));
        QCOMPARE(anna->labels().at(0)->segments().size(), 1);
        QCOMPARE(anna->labels().at(0)->segments().first()->end(), 12.5);

        // The default coder is the project's user; the CSV keeps three decimals.
        const QString csv = m_dir.filePath(QStringLiteral("anna.csv"));
        QCOMPARE(runCli({ QStringLiteral("transcript"), m_project, QStringLiteral("-o"), csv }).code, 0);
        QFile f(csv);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QVERIFY(f.readAll().contains("1.000,2.250,00:00:01.000,00:00:02.250,Ana,\"hello, there\""));
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("unknown format") << QStringList { "transcript", "P", "-o", "x.doc" } << 2 << "unknown format 'doc'";
        QTest::newRow("unknown coder") << QStringList { "transcript", "P", "-o", "x.srt", "--coder", "zoe" } << 1 << "No coder \"zoe\"";
        QTest::newRow("bad --as") << QStringList { "import", "P", "x.srt", "--as", "words" } << 2 << "--as takes";
        QTest::newRow("damaged file") << QStringList { "import", "P", "D" } << 1 << "line 2: text after a closing quote";
    }

    void refusals()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        for (QString &a : args) // whole words only: the temporary paths may contain the letters
            a = a == QLatin1String("P") ? m_project : a == QLatin1String("D") ? m_dir.filePath(QStringLiteral("bad.csv")) : a;
        QFile project(m_project);
        QVERIFY(project.open(QIODevice::ReadOnly));
        const QByteArray before = project.readAll();
        project.close();
        const CliRun r = runCli(args);
        QCOMPARE(r.code, code);
        QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
        QVERIFY(project.open(QIODevice::ReadOnly));
        QCOMPARE(project.readAll(), before);
    }

private:
    QTemporaryDir m_dir;
    QString m_project;
};

QTEST_GUILESS_MAIN(TestCliTranscript)
#include "tst_clitranscript.moc"
