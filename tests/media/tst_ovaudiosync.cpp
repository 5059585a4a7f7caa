#include "media/ovaudioout.h"
#include "media/ovaudioring.h"
#include "media/ovaudiosync.h"

#include <QTest>

#include <cmath>
#include <vector>

// What one sound card buffer does to keep the sound on the clock, and a device simulated on a
// hand-set clock (drifting, starved, late) that must stay in step.
class TestOVAudioSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void plan_data()
    {
        QTest::addColumn<double>("error");
        QTest::addColumn<int>("frames");
        QTest::addColumn<int>("available");
        QTest::addColumn<int>("silence");
        QTest::addColumn<int>("skip");
        QTest::addColumn<int>("read");
        QTest::addColumn<int>("stretchTo");

        // 256 frames at 48 kHz unless said otherwise; at most 26 frames (10 %) of correction.
        QTest::newRow("on time") << 0.0 << 256 << 10000 << 0 << 0 << 256 << 256;
        QTest::newRow("within the dead band") << -0.0009 << 256 << 10000 << 0 << 0 << 256 << 256;
        QTest::newRow("10 ms late drops 24") << -0.010 << 256 << 10000 << 0 << 0 << 280 << 256;
        QTest::newRow("10 ms early repeats 24") << 0.010 << 256 << 10000 << 0 << 0 << 232 << 256;
        QTest::newRow("30 ms late drops at most 10 %") << -0.030 << 256 << 10000 << 0 << 0 << 282 << 256;
        QTest::newRow("30 ms early repeats at most 10 %") << 0.030 << 256 << 10000 << 0 << 0 << 230 << 256;
        QTest::newRow("100 ms late skips it") << -0.100 << 256 << 10000 << 0 << 4800 << 256 << 256;
        QTest::newRow("late, less buffered than due") << -0.100 << 256 << 1000 << 0 << 1000 << 0 << 0;
        QTest::newRow("100 ms early waits the whole buffer") << 0.100 << 256 << 10000 << 256 << 0 << 0 << 0;
        QTest::newRow("early, due within the buffer") << 0.041 << 2048 << 10000 << 1968 << 0 << 80 << 80;
        QTest::newRow("starved plays what there is") << 0.0 << 256 << 100 << 0 << 0 << 100 << 100;
        QTest::newRow("late and starved takes no extra") << -0.010 << 256 << 270 << 0 << 0 << 256 << 256;
        QTest::newRow("no sane error") << std::nan("") << 256 << 10000 << 0 << 0 << 0 << 0;
    }

    void plan()
    {
        QFETCH(double, error);
        QFETCH(int, frames);
        QFETCH(int, available);
        const OVAudioSync::Plan p = OVAudioSync::plan(error, std::size_t(frames), std::size_t(available), 48000);
        QTEST(int(p.silence), "silence");
        QTEST(int(p.skip), "skip");
        QTEST(int(p.read), "read");
        QTEST(int(p.stretchTo), "stretchTo");
        QVERIFY(p.silence + p.stretchTo <= std::size_t(frames));
        QVERIFY(p.skip + p.read <= std::size_t(available));
    }

    // The fill itself: out's first frame is the one due when it is heard, the gain is applied,
    // and dropped or repeated frames are spread over the buffer.
    void fillInStep_data()
    {
        QTest::addColumn<double>("heardAt");
        QTest::addColumn<int>("frames");
        QTest::addColumn<int>("firstSilent");   // silent frames at the start
        QTest::addColumn<int>("firstFrame");    // the ring frame heard after them, -1 none
        QTest::addColumn<int>("lastFrame");     // the ring frame heard last, -1 none
        QTest::addColumn<int>("consumed");      // frames taken from the ring

        // The ring holds frames 0… stamped at 1.0 s, at 48 kHz.
        QTest::newRow("on time") << 1.0 << 256 << 0 << 0 << 255 << 256;
        QTest::newRow("heard 0.1 s late skips it") << 1.1 << 256 << 0 << 4800 << 5055 << 5056;
        QTest::newRow("heard early waits") << 0.9 << 256 << 256 << -1 << -1 << 0;
        QTest::newRow("due within the buffer") << 0.959 << 2048 << 1968 << 0 << 79 << 80;
        QTest::newRow("5 ms late drops a few") << 1.005 << 256 << 0 << 0 << 266 << 268;
    }

    void fillInStep()
    {
        QFETCH(double, heardAt);
        QFETCH(int, frames);
        QFETCH(int, firstSilent);
        QFETCH(int, firstFrame);
        QFETCH(int, lastFrame);
        QFETCH(int, consumed);

        OVAudioRing ring(1 << 16);
        ring.stamp(1.0);
        writeIndexed(ring, 0, 20000);
        std::vector<qint16> out(std::size_t(frames) * 2, 99);
        std::vector<qint16> scratch(8192 * 2);
        const std::size_t taken = OVAudioOut::fillInStep(ring, out.data(), frames, 1.0, false, heardAt, 48000,
                                                         scratch.data(), 8192);
        QCOMPARE(int(taken / 2), consumed);
        for (int i = 0; i < firstSilent; ++i)
            QVERIFY2(out[i * 2] == 0 && out[i * 2 + 1] == 0, qPrintable(QString::number(i)));
        if (firstFrame >= 0) {
            QCOMPARE(indexAt(out, firstSilent), firstFrame);
            QCOMPARE(indexAt(out, frames - 1), lastFrame);
            // Frames only move forward, by one or two.
            for (int i = firstSilent + 1; i < frames; ++i) {
                const int step = indexAt(out, i) - indexAt(out, i - 1);
                QVERIFY2(step >= 1 && step <= 2, qPrintable(QString::number(i)));
            }
        }
    }

    // A device on a hand-set clock: its own clock runs off by `ppm`, it reports `latency`, and
    // the decoder, which keeps 30 ms ahead of what is heard, stops writing for `stallMs` once
    // (the sound it writes afterwards was due meanwhile).
    // Once settled, every buffer's first frame is heard within 2 ms of its due time; the old fill
    // (silence that pushed the rest back, no latency) fails every row.
    void simulatedDeviceStaysOnTheClock_data()
    {
        QTest::addColumn<double>("ppm");
        QTest::addColumn<double>("latency");
        QTest::addColumn<int>("stallMs");

        QTest::newRow("fast device") << 160.0 << 0.02 << 0;
        QTest::newRow("slow device, long latency") << -300.0 << 0.12 << 0;
        QTest::newRow("starved for 200 ms") << 0.0 << 0.03 << 200;
        QTest::newRow("starved for 60 ms") << 160.0 << 0.03 << 60;
    }

    void simulatedDeviceStaysOnTheClock()
    {
        QFETCH(double, ppm);
        QFETCH(double, latency);
        QFETCH(int, stallMs);

        constexpr int Rate = 48000;
        constexpr int Frames = 256;
        OVAudioRing ring(1 << 18);
        std::vector<qint16> out(Frames * 2);
        std::vector<qint16> scratch(8192 * 2);
        int written = 0; // frames, frame i due at i / Rate
        const double period = double(Frames) / Rate / (1.0 + ppm * 1e-6);
        const double stallFrom = 20.0, stallTo = stallFrom + stallMs / 1000.0;
        double worst = 0.0;
        int silentBuffers = 0;
        for (int k = 0; k < int(60.0 / period); ++k) {
            const double now = k * period;
            const bool stalled = now >= stallFrom && now < stallTo;
            while (!stalled && written < int((now + latency + 0.03) * Rate)) {
                ring.stamp(double(written) / Rate);
                written += writeIndexed(ring, written, 1024);
            }
            OVAudioOut::fillInStep(ring, out.data(), Frames, 1.0, false, now + latency, Rate, scratch.data(), 8192);
            if (out[0] == 0 && out[1] == 0) {
                ++silentBuffers;
                continue;
            }
            const double error = indexAt(out, 0) / double(Rate) - (now + latency);
            if (now > 2.0 && !(now > stallFrom && now < stallTo + 0.5))
                worst = std::max(worst, std::abs(error));
        }
        QVERIFY2(worst < 0.002, qPrintable(QStringLiteral("worst %1 ms").arg(worst * 1000)));
        // Silence only while starved.
        QVERIFY2(silentBuffers <= int(stallMs / 1000.0 / period) + 2, qPrintable(QString::number(silentBuffers)));
    }

private:
    // Frame i carries i in its two channels (low and high 15 bits), never both 0.
    static int writeIndexed(OVAudioRing &ring, int from, int count)
    {
        std::vector<qint16> s(std::size_t(count) * 2);
        for (int i = 0; i < count; ++i) {
            const int v = from + i + 1;
            s[std::size_t(i) * 2] = qint16(v & 0x7fff);
            s[std::size_t(i) * 2 + 1] = qint16(v >> 15);
        }
        return int(ring.write(s.data(), s.size()) / 2);
    }

    static int indexAt(const std::vector<qint16> &out, int frame)
    {
        return (int(out[std::size_t(frame) * 2]) | (int(out[std::size_t(frame) * 2 + 1]) << 15)) - 1;
    }
};

QTEST_APPLESS_MAIN(TestOVAudioSync)
#include "tst_ovaudiosync.moc"
