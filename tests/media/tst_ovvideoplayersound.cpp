#include "mediatesthelper.h"

#include "media/ovaudioout.h"
#include "media/ovvideoplayer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

// The player with a real sound device: a private PulseAudio server with a null sink, which
// plays at the system clock's pace and makes no noise (scripts/null-audio.sh).
class TestOVVideoPlayerSound : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_clip;
    MediaTest::NullAudioServer m_server;

private Q_SLOTS:
    void initTestCase()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is not installed");
        if (QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty())
            QSKIP("PulseAudio is not installed");
        QVERIFY2(m_server.start(QStringLiteral("np")), qPrintable(m_server.error()));
        m_clip = MediaTest::generate(m_dir.path(), QStringLiteral("clip.mp4"), MediaTest::args(
            "-f lavfi -i testsrc=size=320x240:rate=25:duration=8 -f lavfi -i sine=frequency=440:sample_rate=48000:duration=8 "
            "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest"));
        QVERIFY(!m_clip.isEmpty());
    }

    void cleanupTestCase() { m_server.stop(); }

    // The output opens at the stream's rate when the player starts, plays while it plays, stops
    // while it is paused, and the picture's clock is untouched by all of it.
    void soundFollowsThePlayer()
    {
        OVVideoPlayer player;
        player.setVolume(0.5);
        QVERIFY(player.open(m_clip));
        QTRY_VERIFY_WITH_TIMEOUT(player.state() == OVVideoPlayer::Playing && player.engine().clock().hasOrigin(),
                                 20000);
        OVAudioOut *out = player.audioOut();
        QTRY_VERIFY_WITH_TIMEOUT(out->isOpen(), 10000);
        QCOMPARE(out->sampleRate(), 48000);
        QCOMPARE(out->gain(), 0.5);
        QTRY_VERIFY_WITH_TIMEOUT(out->isRunning(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(out->framesPlayed() > 24000, 20000);

        const double p0 = player.position();
        QElapsedTimer wall;
        wall.start();
        QTest::qWait(1000);
        QVERIFY(std::abs((player.position() - p0) - wall.elapsed() / 1000.0) < 0.05);

        player.pause();
        QTRY_VERIFY_WITH_TIMEOUT(!out->isRunning(), 10000);
        const quint64 played = out->framesPlayed();
        QTest::qWait(300);
        QCOMPARE(out->framesPlayed(), played);

        player.resume();
        QTRY_VERIFY_WITH_TIMEOUT(out->isRunning(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(out->framesPlayed() > played + 24000, 20000);

        // The device plays what is due now, however late it began to take samples: the oldest
        // sound still queued is the buffer it is playing, and it lies at the clock. (A device
        // that stalls on a loaded machine lags for a moment; a lasting lag is the fault.)
        auto inStep = [&] {
            const OVPlaybackQueues::Span sound = player.engine().queues().audioSpan();
            const double clock = player.engine().clock().clockPosition();
            return !sound.empty && std::abs(sound.oldest - clock) < 0.4;
        };
        for (int i = 0; i < 3; ++i) {
            QTRY_VERIFY_WITH_TIMEOUT(inStep(), 10000);
            QTest::qWait(300);
        }
        player.close();
        QVERIFY(!out->isRunning());
    }
};

QTEST_MAIN(TestOVVideoPlayerSound)
#include "tst_ovvideoplayersound.moc"
