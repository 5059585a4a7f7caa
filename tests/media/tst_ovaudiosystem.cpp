#include "media/ovaudioout.h"
#include "media/ovaudiosystem.h"
#include "media/ovvideoplayer.h"
#include "hangingsounddevice.h"
#include "mediatesthelper.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

// A device scan that hangs, as on a machine where a killed program left JACK's lock taken.
// PortAudio scans once per process, so this runs in a process of its own.
class TestOVAudioSystem : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;
    QString m_pipe;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        m_pipe = makeHangingSoundDevice(m_home.path());
        QVERIFY(!m_pipe.isEmpty());
        qputenv("HOME", m_home.path().toLocal8Bit());
        qputenv("XDG_RUNTIME_DIR", m_home.path().toLocal8Bit());
        qputenv("PULSE_SERVER", QByteArray("unix:") + m_home.path().toLocal8Bit() + "/none");
        qputenv("JACK_NO_START_SERVER", "1");
    }

    void aHangingScanHoldsNothingUpAndIsTakenWhenItEnds()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is not installed");
        const QString clip = MediaTest::generate(m_home.path(), QStringLiteral("clip.mp4"), MediaTest::args(
            "-f lavfi -i testsrc=size=160x120:rate=25:duration=4 -f lavfi -i sine=sample_rate=48000:duration=4 "
            "-c:v mpeg4 -c:a aac -shortest"));
        QVERIFY(!clip.isEmpty());

        QElapsedTimer timer;
        timer.start();
        OVVideoPlayer player; // its output starts the scan
        QVERIFY2(timer.elapsed() < 2000, "making a player waited for the device scan");
        QCOMPARE(OVAudioSystem::state(), OVAudioSystem::Starting);
        QSignalSpy unavailable(player.audioOut(), &OVAudioOut::unavailable);

        // A recording opened meanwhile waits for the scan off the GUI thread, which stays live,
        // and its run begins at its start once the scan is given up.
        qint64 longestGap = 0;
        QElapsedTimer sinceTick;
        sinceTick.start();
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, this, [&] { longestGap = std::max(longestGap, sinceTick.restart()); });
        ticks.start(20);
        QVERIFY(player.open(clip));
        QTRY_COMPARE_WITH_TIMEOUT(unavailable.count(), 1, 3 * OVAudioSystem::StartWaitMs);
        ticks.stop();
        QVERIFY2(timer.elapsed() >= OVAudioSystem::StartWaitMs - 100, "the scan was given up early");
        QCOMPARE(unavailable.at(0).at(0).toString(), QStringLiteral("the sound system did not answer within 10 s"));
        QCOMPARE(OVAudioSystem::unavailableReason(), unavailable.at(0).at(0).toString());
        QVERIFY2(longestGap < 1000, qPrintable(QString("the GUI thread stood still for %1 ms").arg(longestGap)));
        QVERIFY2(player.position() < 1.0, qPrintable(QString("the run began at %1 s").arg(player.position())));
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 10000);
        player.stop();

        // Once given up, the scan is not waited for again: a stream goes on silent at once.
        OVAudioOut out;
        timer.restart();
        QVERIFY(!out.open(48000));
        QVERIFY2(timer.elapsed() < 2000, "a stream waited again for a scan already given up");
        QVERIFY(!out.isOpen());

        // The device answers at last (a writer comes and goes): the scan ends and is taken.
        const int fd = ::open(QFile::encodeName(m_pipe).constData(), O_WRONLY);
        QVERIFY(fd >= 0);
        ::close(fd);
        QTRY_COMPARE_WITH_TIMEOUT(OVAudioSystem::state(), OVAudioSystem::Ready, 20000);
        QVERIFY(OVAudioSystem::waitUntilReady(0));
        QCOMPARE(OVAudioSystem::unavailableReason(), QString());
    }
};

QTEST_GUILESS_MAIN(TestOVAudioSystem)
#include "tst_ovaudiosystem.moc"
