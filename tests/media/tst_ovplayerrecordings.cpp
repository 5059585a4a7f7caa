// Recordings that once crashed or stalled playback, played as a user would: open, play a little,
// seek, change speed, seek and stay paused. None may stop, fail or show a time past its end.
#include "mediatesthelper.h"

#include "media/ovvideoplayer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using MediaTest::args;

class TestOVPlayerRecordings : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private Q_SLOTS:
    void initTestCase()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is not installed");
        QVERIFY(m_dir.isValid());
    }

    void playSeekAndChangeSpeed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("make");
        // When not empty, a second pass over the first file: damage done by the noise filter, or
        // a display rotation (which the tool drops when it encodes).
        QTest::addColumn<QStringList>("damage");
        QTest::addColumn<bool>("video");
        QTest::addColumn<int>("rotation");

        const char *sound = "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=8";
        auto clip = [&](const char *size, const char *codecs) {
            return args("-f lavfi -i") << QStringLiteral("testsrc=size=%1:rate=25:duration=8").arg(size)
                                       << args(sound) << args(codecs);
        };
        QTest::newRow("h264 568 wide") << "w568.mp4" << clip("568x320", "-c:v libx264 -preset ultrafast -c:a aac")
                                       << QStringList() << true << 0;
        QTest::newRow("vp8 600 wide") << "w600.webm" << clip("600x338", "-c:v libvpx -deadline realtime -c:a libvorbis")
                                      << QStringList() << true << 0;
        QTest::newRow("vp8 odd size") << "w333.webm" << clip("333x241", "-c:v libvpx -deadline realtime -c:a libopus")
                                      << QStringList() << true << 0;
        QTest::newRow("mpeg-1 ps, mp2") << "m1.mpg" << clip("352x240", "-c:v mpeg1video -c:a mp2 -ar 44100 -f mpeg")
                                        << QStringList() << true << 0;
        QTest::newRow("mpeg-2 ps, mp3, late start")
            << "m2.mpg" << clip("720x576", "-c:v mpeg2video -c:a libmp3lame -ar 44100 -f vob") << QStringList()
            << true << 0;
        QTest::newRow("one damaged ac-3 frame") << "ac3.mkv" << clip("320x240", "-c:v libx264 -preset ultrafast -c:a ac3")
                                                << args("-c copy -bsf:a noise=amount=eq(n\\,40)") << true << 0;
        QTest::newRow("damaged vorbis") << "vorbis.ogg" << clip("320x240", "-c:v libtheora -c:a libvorbis")
                                        << args("-c copy -bsf:a noise=amount=between(n\\,2\\,5)") << true << 0;
        QTest::newRow("rotated phone video") << "phone.mp4"
                                             << clip("360x640", "-c:v libx264 -preset ultrafast -c:a aac")
                                             << args("-c copy -metadata:s:v:0 rotate=90") << true << 90;
        QTest::newRow("sound only") << "sound.mp3" << args(sound) + args("-c:a libmp3lame") << QStringList() << false
                                    << 0;
    }

    void playSeekAndChangeSpeed()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, make);
        QFETCH(QStringList, damage);
        QFETCH(bool, video);
        QFETCH(int, rotation);
        QString path = MediaTest::generate(m_dir.path(), QStringLiteral("made-") + name, make);
        QVERIFY(!path.isEmpty());
        if (!damage.isEmpty()) {
            path = MediaTest::generate(m_dir.path(), name, QStringList { QStringLiteral("-i"), path } + damage);
            QVERIFY(!path.isEmpty());
        }

        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        MediaTest::FramePuller watcher(&player);
        QSignalSpy errors(&player, &OVVideoDecoderBase::errorRaised);
        QVERIFY(player.open(path));
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        const double duration = player.duration();
        QVERIFY2(std::abs(duration - 8.0) < 0.2, qPrintable(QString::number(duration)));
        if (video) {
            // The first picture is at the start, even where the file's clock starts later.
            QTRY_VERIFY_WITH_TIMEOUT(watcher.last, 20000);
            QVERIFY2(watcher.last->time < 0.2, qPrintable(QString::number(watcher.last->time)));
            QCOMPARE(int(std::lround(watcher.last->rotation)), rotation);
        }
        QTest::qWait(500);

        player.seek(2.5);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin() && player.position() > 2.55, 20000);
        if (video)
            QTRY_VERIFY_WITH_TIMEOUT(watcher.last && watcher.last->time >= 2.5 - 1e-6, 20000);
        QCOMPARE(player.state(), OVVideoPlayer::Playing);

        // A speed change is a seek to where playback is, at the new rate.
        // The clips are long enough that a loaded machine still changes speed well before the
        // end; a change in the last picture's time would end the run instead, which is no fault.
        player.setTimeFactor(0.5);
        QTRY_VERIFY_WITH_TIMEOUT(player.state() == OVVideoPlayer::Stopped
                                     || (player.engine().clock().timeFactor() == 0.5
                                         && player.engine().clock().hasOrigin()),
                                 20000);
        const double before = player.position();
        QTest::qWait(300);
        QVERIFY2(player.position() > before || player.state() == OVVideoPlayer::Stopped,
                 qPrintable(QStringLiteral("%1 -> %2").arg(before).arg(player.position())));
        player.setTimeFactor(1.0);

        player.seek(1.0, false);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Paused, 20000);
        if (video)
            QTRY_VERIFY_WITH_TIMEOUT(watcher.last && std::abs(watcher.last->time - 1.0) < 0.1, 20000);
        QVERIFY2(std::abs(player.position() - 1.0) < 0.1, qPrintable(QString::number(player.position())));

        QCOMPARE(errors.count(), 0);
        QCOMPARE(player.lastError(), OV::Error());
        QVERIFY2(watcher.latest <= duration + 0.05,
                 qPrintable(QStringLiteral("%1 of %2").arg(watcher.latest).arg(duration)));
    }

    void positionStaysWithinTheRecording_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("make");
        // The late start ran 40 ms past its duration before its last picture had been shown.
        QTest::newRow("mpeg-2 ps, late start")
            << "end-m2.mpg"
            << args("-f lavfi -i testsrc=size=352x288:rate=25:duration=3 -f lavfi -i "
                    "sine=sample_rate=44100:duration=3 -c:v mpeg2video -c:a mp2 -f vob");
        QTest::newRow("sound only") << "end-sound.mp3"
                                    << args("-f lavfi -i sine=sample_rate=44100:duration=3 -c:a libmp3lame");
    }

    void positionStaysWithinTheRecording()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, make);
        const QString path = MediaTest::generate(m_dir.path(), name, make);
        QVERIFY(!path.isEmpty());
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        MediaTest::FramePuller watcher(&player);
        QVERIFY(player.open(path));
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        const double duration = player.duration();
        QVERIFY(duration > 2.5);
        player.seek(duration - 0.6);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        double highest = 0.0;
        QElapsedTimer waited;
        waited.start();
        while (player.state() == OVVideoPlayer::Playing && waited.elapsed() < 20000) {
            highest = std::max(highest, player.position());
            QTest::qWait(2);
        }
        QCOMPARE(player.state(), OVVideoPlayer::Stopped);
        QVERIFY2(highest <= duration, qPrintable(QStringLiteral("%1 of %2").arg(highest).arg(duration)));
        QVERIFY(highest > duration - 0.2);
    }
};

QTEST_MAIN(TestOVPlayerRecordings)
#include "tst_ovplayerrecordings.moc"
