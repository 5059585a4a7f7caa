// kavot-cli's media sub-commands on files made at test time with the ffmpeg tool.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "clirun.h"

class TestCliMedia : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_video;

private Q_SLOTS:
    void initTestCase()
    {
        m_video = m_dir.filePath("clip.mp4");
        QVERIFY(runFfmpeg({ "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25:duration=3", "-f", "lavfi",
                                     "-i", "sine=frequency=440:sample_rate=44100:duration=3", "-c:v", "libx264",
                                     "-pix_fmt", "yuv420p", "-c:a", "aac", "-shortest", m_video }));
    }

    void probePrintsTheStreams()
    {
        const CliRun r = runCli({ "probe", m_video });
        QCOMPARE(r.code, 0);
        const QJsonObject json = QJsonDocument::fromJson(r.out).object();
        QVERIFY(qAbs(json["duration"].toDouble() - 3.0) < 0.1);
        const QJsonArray streams = json["streams"].toArray();
        QCOMPARE(streams.size(), 2);
        QCOMPARE(streams[0].toObject()["type"].toString(), QString("video"));
        QCOMPARE(streams[0].toObject()["width"].toInt(), 320);
        QCOMPARE(streams[1].toObject()["type"].toString(), QString("audio"));
        QCOMPARE(streams[1].toObject()["sampleRate"].toInt(), 44100);
        QCOMPARE(streams[1].toObject()["channelLayout"].toString(), QString("mono"));
    }

    void probeRefusesWhatIsNotMedia_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no file at all
        QTest::newRow("missing") << QByteArray();
        QTest::newRow("text renamed .mp4") << QByteArray("just some words\n");
    }
    void probeRefusesWhatIsNotMedia()
    {
        QFETCH(QByteArray, content);
        const QString path = m_dir.filePath(QString("bad-%1.mp4").arg(QTest::currentDataTag()));
        if (!content.isNull()) {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(content);
        }
        const CliRun r = runCli({ "probe", path });
        QCOMPARE(r.code, 1);
        QVERIFY(r.out.isEmpty());
        QVERIFY(r.err.contains("Cannot open input file"));
    }

    void newProjectWithItsVideo()
    {
        const QString out = m_dir.filePath("study.kvpr");
        const CliRun r = runCli({ "new", "--video", m_video, "--owner", "nina", "--title", "Demo", out });
        QCOMPARE(r.code, 0);
        QCOMPARE(runCli({ "check", out }).out.trimmed(), QByteArray("ok"));
        const QJsonObject dump = QJsonDocument::fromJson(runCli({ "dump", out }).out).object();
        const QJsonObject header = dump["project"].toObject();
        QCOMPARE(header["title"].toString(), QString("Demo"));
        QCOMPARE(header["video_path"].toString(), QString("clip.mp4")); // stored relative to the project
        QVERIFY(qAbs(header["video_length"].toString().toDouble() - 3.0) < 0.1);
        const QJsonArray timelines = dump["timelines"].toArray();
        QCOMPARE(timelines.size(), 1);
        QCOMPARE(timelines[0].toObject()["owner"].toString(), QString("nina"));

        const CliRun bad = runCli({ "new", "--video", m_dir.filePath("nothing.mp4"), m_dir.filePath("x.kvpr") });
        QCOMPARE(bad.code, 1);
        QVERIFY(!QFile::exists(m_dir.filePath("x.kvpr")));
    }
};

QTEST_GUILESS_MAIN(TestCliMedia)
#include "tst_climedia.moc"
