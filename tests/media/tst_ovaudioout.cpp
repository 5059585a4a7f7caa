#include "media/ovaudioout.h"
#include "mediatesthelper.h"
#include "media/ovaudioplayerinterface.h"
#include "media/ovaudioring.h"

#include <QFile>
#include <QTemporaryDir>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <cmath>
#include <vector>

using Samples = std::vector<qint16>;

// Skips only where PulseAudio is not installed; a server that is installed but does not come up
// is a failure.
#define NEED_SERVER()                                                                             \
    do {                                                                                          \
        if (!m_serverError.isEmpty() && QStandardPaths::findExecutable(QStringLiteral("pulseaudio")).isEmpty()) \
            QSKIP(qPrintable(m_serverError));                                                     \
        QVERIFY2(m_serverError.isEmpty(), qPrintable(m_serverError));                             \
    } while (false)

namespace {

// Interleaved stereo that never rounds to 0 under two gains of 0.5: left and right differ so a
// swapped channel shows.
Samples pattern(int frames, int seed)
{
    Samples s(std::size_t(frames) * 2);
    for (int i = 0; i < frames; ++i) {
        const int v = 4000 + (i * 7919 + seed * 104729) % 26000;
        s[std::size_t(i) * 2] = qint16(v);
        s[std::size_t(i) * 2 + 1] = qint16(-(v / 2 + 2000));
    }
    return s;
}

Samples afterGain(const Samples &in, double gain)
{
    Samples out(in.size());
    for (std::size_t i = 0; i < in.size(); ++i)
        out[i] = OVAudioRing::applyGain(OVAudioRing::applyGain(in[i], gain), gain);
    return out;
}

// Index of the first place where `needle` (its first 64 samples) starts in `hay`, from `from`.
qsizetype findBlock(const Samples &hay, const Samples &needle, qsizetype from)
{
    const qsizetype n = std::min<qsizetype>(64, qsizetype(needle.size()));
    for (qsizetype i = from; i + n <= qsizetype(hay.size()); ++i) {
        if (std::equal(needle.begin(), needle.begin() + n, hay.begin() + i))
            return i;
    }
    return -1;
}

class FakePlayer : public QObject, public OVAudioPlayerInterface
{
    Q_OBJECT
public:
    QObject *playerObject() override { return this; }
    bool hasAudioStream() const override { return m_hasAudio; }
    int audioSampleRate() const override { return 48000; }
    double volume() const override { return 0.75; }
    bool isPaused() const override { return m_paused; }

    bool m_hasAudio = true;
    bool m_paused = false;

Q_SIGNALS:
    void initFinished(int errorCode);
    void videoStarted();
    void videoFinished();
    void stopRequested();
    void stateChanged();
};

} // namespace

class TestOVAudioOut : public QObject
{
    Q_OBJECT

private:
    MediaTest::NullAudioServer m_server;
    QString m_sink;
    QString m_serverError;

private Q_SLOTS:
    void initTestCase()
    {
        if (!m_server.start(QStringLiteral("na"))) {
            m_serverError = m_server.error();
            qWarning() << m_serverError;
            return;
        }
        m_sink = m_server.sink();
        QVERIFY(!m_sink.isEmpty());
    }

    void cleanupTestCase() { m_server.stop(); }

    void gainAndClipping_data()
    {
        QTest::addColumn<int>("sample");
        QTest::addColumn<double>("gain");
        QTest::addColumn<int>("expected");
        QTest::newRow("2.0 at the limit") << 16383 << 2.0 << 32766;
        QTest::newRow("2.0 clips -20000 to -32767") << -20000 << 2.0 << -32767;
        QTest::newRow("2.0 just past the limit") << 16384 << 2.0 << 32767;
        QTest::newRow("1.0 keeps") << 12345 << 1.0 << 12345;
        QTest::newRow("1.0 never -32768") << -32768 << 1.0 << -32767;
        QTest::newRow("0.5 truncates toward 0") << -3 << 0.5 << -1;
        QTest::newRow("0 silences") << 30000 << 0.0 << 0;
    }
    void gainAndClipping()
    {
        QFETCH(int, sample);
        QFETCH(double, gain);
        QFETCH(int, expected);
        QCOMPARE(int(OVAudioRing::applyGain(sample, gain)), expected);
    }

    // The gain applies entering the ring and again leaving it.
    void fillAppliesTheGainTwice()
    {
        OVAudioRing ring(1024);
        const Samples in = {10000, 20000, -10000, -20000};
        QCOMPARE(ring.write(in.data(), in.size(), 2.0), in.size());
        Samples out(4);
        QCOMPARE(OVAudioOut::fillBuffer(ring, out.data(), 2, 2.0, false), std::size_t(4));
        QCOMPARE(out, (Samples{32767, 32767, -32767, -32767}));

        const Samples quiet = {1000, -1000};
        ring.write(quiet.data(), 2, 0.5);
        Samples one(2);
        OVAudioOut::fillBuffer(ring, one.data(), 1, 0.5, false);
        QCOMPARE(one, (Samples{250, -250}));
    }

    void starvedFillIsSilentAndConsumesNothing()
    {
        OVAudioRing ring(1024);
        Samples out(512, 99);
        QCOMPARE(OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, false), std::size_t(0));
        QCOMPARE(out, Samples(512, 0));

        // Fewer samples than asked for: still exact silence, and they stay for later.
        const Samples first = pattern(200, 1);
        ring.write(first.data(), first.size());
        out.assign(512, 99);
        QCOMPARE(OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, false), std::size_t(0));
        QCOMPARE(out, Samples(512, 0));
        QCOMPARE(ring.readCount(), quint64(0));

        const Samples second = pattern(56, 2);
        ring.write(second.data(), second.size());
        QCOMPARE(OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, false), std::size_t(512));
        Samples due = first;
        due.insert(due.end(), second.begin(), second.end());
        QCOMPARE(out, due);
    }

    void mutedFillIsSilentButAdvances()
    {
        OVAudioRing ring(1024);
        const Samples in = pattern(300, 3);
        ring.write(in.data(), in.size());
        Samples out(512, 99);
        QCOMPARE(OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, true), std::size_t(512));
        QCOMPARE(out, Samples(512, 0));
        QCOMPARE(ring.readCount(), quint64(512));
        QCOMPARE(ring.readAvailable(), std::size_t(88));
    }

    void ringWrapsAndRefusesOverflow()
    {
        OVAudioRing ring(100);
        QCOMPARE(ring.capacity(), std::size_t(128));
        const Samples a = pattern(50, 4); // 100 samples
        QCOMPARE(ring.write(a.data(), a.size()), std::size_t(100));
        Samples out(80);
        QVERIFY(ring.read(out.data(), 80));
        QVERIFY(std::equal(out.begin(), out.end(), a.begin()));
        const Samples b = pattern(60, 5); // 120 samples, room for 108
        QCOMPARE(ring.write(b.data(), b.size()), std::size_t(108));
        QCOMPARE(ring.writeAvailable(), std::size_t(0));
        Samples rest(128);
        QVERIFY(ring.read(rest.data(), 128));
        QVERIFY(std::equal(rest.begin(), rest.begin() + 20, a.begin() + 80));
        QVERIFY(std::equal(rest.begin() + 20, rest.end(), b.begin()));
        QVERIFY(!ring.read(rest.data(), 1));
    }

    // What comes out of the sink is what went in, with the gain applied twice, and exact
    // silence while the ring is starved.
    void soundComesOutAsItWentIn()
    {
        NEED_SERVER();
        QTemporaryDir tmp;
        QVERIFY(tmp.isValid());
        const QString recording = tmp.filePath(QStringLiteral("monitor.raw"));
        QProcess rec;
        rec.setStandardOutputFile(recording);
        rec.start(QStringLiteral("parec"),
                  {QStringLiteral("-d"), m_sink + QStringLiteral(".monitor"),
                   QStringLiteral("--format=s16le"), QStringLiteral("--rate=48000"),
                   QStringLiteral("--channels=2"), QStringLiteral("--latency-msec=20")});
        if (!rec.waitForStarted(5000))
            QSKIP("parec (pulseaudio-utils) is not available");
        QTest::qWait(300);

        const double gain = 0.5;
        // Whole device buffers (48 × 256 frames, 0.256 s): a partial buffer waits for more.
        const Samples a = pattern(12288, 7);
        const Samples b = pattern(12288, 8);
        OVAudioOut out;
        // A roomy buffer: on a loaded machine a few milliseconds underrun, and the sound server
        // then loses what arrives late, which is not what this test is about.
        QVERIFY(out.open(48000, 0.25));
        out.setGain(gain);
        QVERIFY(out.start());
        // The monitor delivers from the moment the sink has a client: begin starved, so the
        // first block is recorded whole.
        QTest::qWait(300);
        out.ring()->write(a.data(), a.size(), gain);
        QTRY_COMPARE_WITH_TIMEOUT(out.framesPlayed(), quint64(12288), 5000);
        QTest::qWait(300); // starved
        out.ring()->write(b.data(), b.size(), gain);
        QTRY_COMPARE_WITH_TIMEOUT(out.framesPlayed(), quint64(24576), 5000);
        QTest::qWait(400);
        out.close();
        rec.terminate();
        QVERIFY(rec.waitForFinished(5000));

        QFile f(recording);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray raw = f.readAll();
        Samples heard(std::size_t(raw.size()) / 2);
        std::memcpy(heard.data(), raw.constData(), heard.size() * 2);

        const Samples wantA = afterGain(a, gain);
        const Samples wantB = afterGain(b, gain);
        const qsizetype atA = findBlock(heard, wantA, 0);
        QVERIFY2(atA >= 0, "the first block was not heard");
        QVERIFY(std::all_of(heard.begin(), heard.begin() + atA, [](qint16 v) { return v == 0; }));
        QVERIFY(atA + qsizetype(wantA.size()) <= qsizetype(heard.size()));
        QVERIFY(std::equal(wantA.begin(), wantA.end(), heard.begin() + atA));
        const qsizetype endA = atA + qsizetype(wantA.size());
        const qsizetype atB = findBlock(heard, wantB, endA);
        QVERIFY2(atB >= 0, "the second block was not heard");
        QVERIFY(atB + qsizetype(wantB.size()) <= qsizetype(heard.size()));
        QVERIFY(std::equal(wantB.begin(), wantB.end(), heard.begin() + atB));
        // Between them only silence, and at least most of the 0.3 s wait of it.
        const qsizetype gapFrames = (atB - endA) / 2;
        QVERIFY(gapFrames > 48000 / 10);
        QVERIFY(std::all_of(heard.begin() + endA, heard.begin() + atB,
                            [](qint16 v) { return v == 0; }));
    }

    void followsThePlayer()
    {
        NEED_SERVER();
        FakePlayer player;
        OVAudioOut out;
        out.setPlayer(&player);

        Q_EMIT player.initFinished(1); // failed start: stays closed
        QVERIFY(!out.isOpen());
        Q_EMIT player.initFinished(0);
        QVERIFY(out.isOpen());
        QVERIFY(out.isRunning());
        QCOMPARE(out.gain(), 0.75);

        player.m_paused = true;
        Q_EMIT player.stateChanged();
        QVERIFY(!out.isRunning());
        QVERIFY(out.isStopped());
        player.m_paused = false;
        Q_EMIT player.stateChanged();
        QVERIFY(out.isRunning());
        Q_EMIT player.stopRequested();
        QVERIFY(!out.isRunning());
        Q_EMIT player.videoStarted();
        QVERIFY(out.isRunning());
        Q_EMIT player.videoFinished();
        QVERIFY(!out.isRunning());

        // A new player replaces the old one's connections.
        FakePlayer other;
        out.setPlayer(&other);
        Q_EMIT player.videoStarted();
        QVERIFY(!out.isRunning());
        Q_EMIT other.videoStarted();
        QVERIFY(out.isRunning());
        out.setPlayer(nullptr);

        FakePlayer silent;
        silent.m_hasAudio = false;
        OVAudioOut quiet;
        quiet.setPlayer(&silent);
        Q_EMIT silent.initFinished(0);
        QVERIFY(!quiet.isOpen());
    }
};

QTEST_GUILESS_MAIN(TestOVAudioOut)
#include "tst_ovaudioout.moc"
