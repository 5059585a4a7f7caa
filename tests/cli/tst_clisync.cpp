// kavot-cli sync on recordings made at test time with the ffmpeg tool: a video and a second
// recording of its scene made by another device, and a recording of something else.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "clirun.h"

namespace {

// Noise whose loudness jumps every few tens of milliseconds, like a room full of talk.
QString scene(int seed, double seconds)
{
    return QStringLiteral("anoisesrc=c=pink:r=44100:a=0.5:seed=%1:d=%2,volume='0.05+0.95*random(0)':eval=frame")
        .arg(seed)
        .arg(seconds);
}

} // namespace

class TestCliSync : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_video;
    QString m_lateVideo;
    QString m_second;
    QString m_other;

private Q_SLOTS:
    void initTestCase()
    {
        m_video = m_dir.filePath("video.mp4");
        m_second = m_dir.filePath("second.m4a");
        m_other = m_dir.filePath("other.m4a");
        const QString sceneWav = m_dir.filePath("scene.wav");
        QVERIFY(runFfmpeg({ "-f", "lavfi", "-i", scene(3, 30), sceneWav }));
        QVERIFY(runFfmpeg({ "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=25", "-i", sceneWav, "-af",
                         "atrim=end=25", "-c:v", "libx264", "-preset", "ultrafast", "-c:a", "aac", "-shortest",
                         m_video }));
        // A camera whose sound starts half a second after its picture: the scene is heard 0.5 s
        // later on the recording's time axis.
        m_lateVideo = m_dir.filePath("late-sound.mp4");
        QVERIFY(runFfmpeg({ "-f", "lavfi", "-i", "testsrc2=size=160x120:rate=25:duration=25", "-itsoffset", "0.5", "-i",
                         sceneWav, "-af", "atrim=end=24", "-map", "0:v", "-map", "1:a", "-c:v", "libx264", "-preset",
                         "ultrafast", "-c:a", "aac", m_lateVideo }));
        // The second device starts 3.25 s into the scene, at another rate, with a cheap microphone.
        QVERIFY(runFfmpeg({ "-i", sceneWav, "-af", "atrim=start=3.25,asetpts=PTS-STARTPTS,highpass=f=150,aresample=48000",
                         "-c:a", "aac", m_second }));
        QVERIFY(runFfmpeg({ "-f", "lavfi", "-i", scene(8, 20), "-c:a", "aac", m_other }));
    }

    void syncPrintsOffsetAndPoints_data()
    {
        QTest::addColumn<bool>("lateSound");
        QTest::addColumn<double>("offset");
        QTest::newRow("sound from the start") << false << 3.25;
        QTest::newRow("sound 0.5 s after the picture") << true << 3.75;
    }

    void syncPrintsOffsetAndPoints()
    {
        QFETCH(bool, lateSound);
        QFETCH(double, offset);
        const QString merged = m_dir.filePath(lateSound ? "merged-late.mp4" : "merged.mp4");
        const CliRun r = runCli({ "sync", lateSound ? m_lateVideo : m_video, m_second, "--merge", merged });
        QVERIFY2(r.code == 0, r.err.constData());
        const QStringList lines = QString::fromUtf8(r.out).split('\n', Qt::SkipEmptyParts);
        QVERIFY(lines.size() >= 4);
        QVERIFY(lines[0].startsWith("OFFSET "));
        QVERIFY2(std::fabs(lines[0].mid(7).toDouble() - offset) < 0.001, qPrintable(lines[0]));
        QVERIFY(lines[1].startsWith("DRIFT "));
        QVERIFY2(std::fabs(lines[1].mid(6).toDouble()) < 50, qPrintable(lines[1]));
        for (const QString &line : lines.mid(2)) {
            const QStringList f = line.split(' ');
            QCOMPARE(f.size(), 4);
            QCOMPARE(f[0], QStringLiteral("POINT"));
            QVERIFY2(std::fabs(f[1].toDouble() - f[2].toDouble() - offset) < 0.001, qPrintable(line));
            QVERIFY(f[3].toDouble() > 0 && f[3].toDouble() <= 1);
        }
        // The merged video carries the secondary as a second audio stream.
        const CliRun probe = runCli({ "probe", merged });
        QCOMPARE(probe.code, 0);
        int audio = 0;
        for (const QJsonValue &s : QJsonDocument::fromJson(probe.out).object().value("streams").toArray())
            audio += s.toObject().value("type").toString() == "audio";
        QCOMPARE(audio, 2);
        // The merged stream is heard where the recording's own sound is.
        const CliRun again = runCli({ "sync", merged, merged, "--primary-stream", "0", "--secondary-stream", "1" });
        QVERIFY2(again.code == 0, again.err.constData());
        const QString first = QString::fromUtf8(again.out).section('\n', 0, 0);
        QVERIFY2(first.startsWith("OFFSET ") && std::fabs(first.mid(7).toDouble()) < 0.001, qPrintable(first));
    }

    void syncRefuses_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("message");
        QTest::newRow("recordings sharing no sound") << QStringList { "sync", "VIDEO", "OTHER" }
                                                     << QStringLiteral("No sync point found");
        QTest::newRow("secondary missing") << QStringList { "sync", "VIDEO", "missing.m4a" }
                                           << QStringLiteral("Failed to open file\n\tmissing.m4a");
        QTest::newRow("stream that is not there") << QStringList { "sync", "VIDEO", "OTHER", "--secondary-stream", "1" }
                                                  << QStringLiteral("The file has no audio stream #1");
    }

    void syncRefuses()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, message);
        args.replaceInStrings("VIDEO", m_video).replaceInStrings("OTHER", m_other);
        const CliRun r = runCli(args);
        QCOMPARE(r.code, 1);
        QVERIFY(r.out.isEmpty());
        QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
    }
};

QTEST_GUILESS_MAIN(TestCliSync)
#include "tst_clisync.moc"
