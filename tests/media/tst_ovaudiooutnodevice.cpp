#include "media/ovaudioout.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

int s_noOutputWarnings = 0;
QtMessageHandler s_previous = nullptr;

void countWarnings(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtWarningMsg && message.contains(QStringLiteral("no sound output")))
        ++s_noOutputWarnings;
    s_previous(type, context, message);
}

} // namespace

// A machine without any sound output: the output stays closed, says so once, and never fails
// the caller. PortAudio reads the ALSA and PulseAudio setup when it initialises, so this runs in
// its own process with a home that has no .asoundrc and a sound server that does not exist.
class TestOVAudioOutNoDevice : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        qputenv("HOME", m_home.path().toLocal8Bit());
        qputenv("XDG_RUNTIME_DIR", m_home.path().toLocal8Bit());
        qputenv("PULSE_SERVER", QByteArray("unix:") + m_home.path().toLocal8Bit() + "/none");
        qputenv("JACK_NO_START_SERVER", "1");
        s_previous = qInstallMessageHandler(countWarnings);
    }

    void cleanupTestCase() { qInstallMessageHandler(s_previous); }

    void staysClosedAndSaysSoOnce()
    {
        OVAudioOut out;
        QVERIFY(!out.open(48000));
        QVERIFY(!out.isOpen());
        QVERIFY(!out.start());
        QVERIFY(!out.isRunning());
        out.stop();
        QVERIFY(out.isStopped());
        // The ring is still there for the decoder to write into and the queue to drain.
        QVERIFY(out.ring()->capacity() >= std::size_t(48000 * 2 * OVAudioOut::RingSeconds));
        QCOMPARE(out.framesConsumed(), quint64(0));

        QVERIFY(!out.open(44100));
        OVAudioOut second;
        QVERIFY(!second.open(48000));
        QCOMPARE(s_noOutputWarnings, 1);
    }
};

QTEST_GUILESS_MAIN(TestOVAudioOutNoDevice)
#include "tst_ovaudiooutnodevice.moc"
