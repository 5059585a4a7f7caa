#include "media/ovaudioout.h"
#include "media/ovaudiosystem.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// A device scan that hangs, as on a machine where a killed program left JACK's lock taken. Here
// the hanging device is an ALSA capture device whose input is a named pipe nobody writes to:
// opening it blocks until a writer comes. PortAudio scans once per process, so this runs in a
// process of its own, with that device in its only ALSA setup.
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
        m_pipe = m_home.filePath("never-written");
        QCOMPARE(::mkfifo(QFile::encodeName(m_pipe).constData(), 0600), 0);
        QFile rc(m_home.filePath(".asoundrc"));
        QVERIFY(rc.open(QIODevice::WriteOnly));
        rc.write(QStringLiteral("pcm.hangs {\n type file\n slave.pcm \"null\"\n file \"/dev/null\"\n infile \"%1\"\n}\n")
                     .arg(m_pipe)
                     .toUtf8());
        rc.close();
        qputenv("HOME", m_home.path().toLocal8Bit());
        qputenv("XDG_RUNTIME_DIR", m_home.path().toLocal8Bit());
        qputenv("PULSE_SERVER", QByteArray("unix:") + m_home.path().toLocal8Bit() + "/none");
        qputenv("JACK_NO_START_SERVER", "1");
    }

    void aHangingScanHoldsNothingUpAndIsTakenWhenItEnds()
    {
        QElapsedTimer timer;
        timer.start();
        OVAudioOut out;
        QSignalSpy unavailable(&out, &OVAudioOut::unavailable);
        QVERIFY2(timer.elapsed() < 2000, "making an output waited for the device scan");
        QCOMPARE(OVAudioSystem::state(), OVAudioSystem::Starting);

        QVERIFY(!OVAudioSystem::waitUntilReady(300));
        QCOMPARE(OVAudioSystem::state(), OVAudioSystem::Starting);
        QCOMPARE(OVAudioSystem::unavailableReason(), QStringLiteral("the sound system did not answer within 0.3 s"));

        // Once a wait has run out, a stream does not wait again: it goes on silent at once.
        timer.restart();
        QVERIFY(!out.open(48000));
        QVERIFY2(timer.elapsed() < 2000, "a stream waited again for a scan already given up");
        QVERIFY(!out.isOpen());
        QCOMPARE(unavailable.count(), 1);
        QCOMPARE(unavailable.at(0).at(0).toString(), OVAudioSystem::unavailableReason());

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
