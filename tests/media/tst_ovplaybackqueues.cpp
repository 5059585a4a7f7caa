#include "media/ovaudioout.h"
#include "media/ovaudioring.h"
#include "media/ovplaybackqueues.h"

#include <QScopeGuard>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cmath>
#include <thread>

namespace {

OVPlaybackQueues::VideoFrame frameAt(double t)
{
    OVPlaybackQueues::VideoFrame f;
    f.time = t;
    f.width = 4;
    f.height = 2;
    f.stride = 12;
    f.pixels = QByteArray(24, 'x');
    return f;
}

OVPlaybackQueues::AudioBuffer soundAt(double t, std::vector<qint16> samples = {1, 2, 3, 4})
{
    OVPlaybackQueues::AudioBuffer b;
    b.time = t;
    b.sampleRate = 48000;
    b.samples = std::move(samples);
    return b;
}

} // namespace

class TestOVPlaybackQueues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void staleItemsAreDropped()
    {
        OVPlaybackQueues q;
        const quint64 first = q.newSerial();
        QCOMPARE(q.pushVideoFrame(frameAt(0.0), first), 1);
        QCOMPARE(q.pushVideoFrame(frameAt(0.04), first), 2);
        QVERIFY(q.pushAudioBuffer(soundAt(0.0), first, false));

        // A seek: what was queued goes, and what the decoder still delivers from before too.
        const quint64 second = q.newSerial();
        QVERIFY(second != first);
        QCOMPARE(q.videoFrameCount(), 0);
        QCOMPARE(q.audioBufferCount(), 0);
        QCOMPARE(q.pushVideoFrame(frameAt(0.08), first), -1);
        QVERIFY(!q.pushAudioBuffer(soundAt(0.02), first, false));
        QVERIFY(!q.takeDueFrame(1e9));
        QCOMPARE(q.framesSinceSeek(), 0);

        QCOMPARE(q.pushVideoFrame(frameAt(50.0), second), 1);
        const auto shown = q.takeDueFrame(50.0);
        QVERIFY(shown);
        QCOMPARE(shown->time, 50.0);
        QCOMPARE(shown->serial, second);
    }

    void newestDueFrameShownOnce()
    {
        OVPlaybackQueues q;
        const quint64 s = q.newSerial();
        for (int i = 0; i < 10; ++i)
            q.pushVideoFrame(frameAt(i * 0.04), s);

        QVERIFY(!q.takeDueFrame(-0.01));
        auto f = q.takeDueFrame(0.10); // 0, 0.04, 0.08 are due: only 0.08 comes out
        QVERIFY(f);
        QCOMPARE(f->time, 0.08);
        QCOMPARE(q.videoFrameCount(), 8);
        QVERIFY(!q.takeDueFrame(0.11));
        f = q.takeDueFrame(0.12);
        QVERIFY(f);
        QCOMPARE(f->time, 0.12);
        f = q.takeDueFrame(100.0);
        QVERIFY(f);
        QCOMPARE(f->time, 0.36);
        QCOMPARE(q.videoFrameCount(), 1);
        QVERIFY(!q.takeDueFrame(100.0));
    }

    void isAheadNeedsLeadAndSpan_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<double>("oldest");
        QTest::addColumn<double>("newest");
        QTest::addColumn<double>("clock");
        QTest::addColumn<double>("extraLead");
        QTest::addColumn<bool>("ahead");
        QTest::newRow("both over") << 1.0 << 0.0 << 2.5 << 0.0 << 0.0 << true;
        QTest::newRow("lead under") << 1.0 << 0.0 << 2.5 << 1.0 << 0.0 << false;
        QTest::newRow("span under") << 1.0 << 1.0 << 2.5 << 0.0 << 0.0 << false;
        QTest::newRow("exactly the limit") << 1.0 << 0.0 << 2.0 << 0.0 << 0.0 << false;
        QTest::newRow("half speed allows 4") << 2.0 << 0.0 << 3.9 << 0.0 << 0.0 << false;
        QTest::newRow("half speed over 4") << 2.0 << 0.0 << 4.1 << 0.0 << 0.0 << true;
        QTest::newRow("double speed over 1") << 0.5 << 0.0 << 1.1 << 0.0 << 0.0 << true;
        QTest::newRow("start offset adds lead") << 1.0 << 0.0 << 2.5 << 1.0 << 1.0 << true;
    }
    void isAheadNeedsLeadAndSpan()
    {
        QFETCH(double, factor);
        QFETCH(double, oldest);
        QFETCH(double, newest);
        QFETCH(double, clock);
        QFETCH(double, extraLead);
        QFETCH(bool, ahead);
        for (bool video : {true, false}) {
            OVPlaybackQueues q;
            const quint64 s = q.newSerial();
            for (double t : {oldest, newest}) {
                if (video)
                    q.pushVideoFrame(frameAt(t), s);
                else
                    q.pushAudioBuffer(soundAt(t), s, false);
            }
            QCOMPARE(q.isAhead(clock, factor, video, extraLead), ahead);
            // The other queue is empty, so measuring it never throttles.
            QVERIFY(!q.isAhead(clock, factor, !video, extraLead));
        }
    }

    // A decoder thread pushes 25 pictures a second of media as fast as the throttle lets it,
    // while nothing consumes: the queued span must stop at 2 × factor (plus the one picture
    // that passed the check).
    void throttleBoundsTheQueueWhileNothingConsumes_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<bool>("video");
        QTest::newRow("video 1.0") << 1.0 << true;
        QTest::newRow("sound 2.0") << 2.0 << false;
    }
    void throttleBoundsTheQueueWhileNothingConsumes()
    {
        QFETCH(double, factor);
        QFETCH(bool, video);
        OVPlaybackQueues q;
        const quint64 s = q.newSerial();
        const double step = 0.04 * factor;
        std::atomic<bool> stop{false};
        std::atomic<int> pushed{0};
        std::atomic<int> waits{0};
        std::thread decoder([&] {
            for (int i = 0; !stop.load(); ++i) {
                q.waitWhileAhead([] { return 0.0; }, factor, video, 0.0,
                                 [&] { return stop.load(); }, [&] { ++waits; });
                if (stop.load())
                    break;
                if (video)
                    q.pushVideoFrame(frameAt(i * step), s);
                else
                    q.pushAudioBuffer(soundAt(i * step), s, false);
                ++pushed;
            }
        });
        const auto joiner = qScopeGuard([&] {
            stop = true;
            decoder.join();
        });
        // Wait until the decoder is held back and stays so.
        QTRY_VERIFY_WITH_TIMEOUT(waits.load() > 20, 20000);
        const int held = pushed.load();
        QTest::qWait(200);
        QCOMPARE(pushed.load(), held);
        const OVPlaybackQueues::Span span = video ? q.videoSpan() : q.audioSpan();
        QVERIFY2(span.length() <= 2.0 * factor + step + 1e-9,
                 qPrintable(QString::number(span.length())));
        QVERIFY(span.length() > 2.0 * factor);
    }

    void seekInterruptsTheWait()
    {
        OVPlaybackQueues q;
        const quint64 s = q.newSerial();
        for (int i = 0; i < 100; ++i)
            q.pushVideoFrame(frameAt(i * 0.04), s);
        std::atomic<bool> seekPending{false};
        std::atomic<bool> done{false};
        std::thread decoder([&] {
            q.waitWhileAhead([] { return 0.0; }, 1.0, true, 0.0, [&] { return seekPending.load(); });
            done = true;
        });
        const auto joiner = qScopeGuard([&] {
            seekPending = true;
            decoder.join();
        });
        QTest::qWait(50);
        QVERIFY(!done.load());
        seekPending = true;
        QTRY_VERIFY(done.load());
    }

    void soundGoesThroughTheRingWithTheEntryGain()
    {
        OVAudioRing ring(16);
        OVPlaybackQueues q;
        q.setAudioRing(&ring);
        const quint64 s = q.newSerial();
        QVERIFY(q.pushAudioBuffer(soundAt(0.0, {100, -100, 200, -200}), s, false));
        QVERIFY(q.pushAudioBuffer(soundAt(0.1, std::vector<qint16>(16, 7)), s, false));
        q.pumpAudio(2.0, 0.0);
        // 4 + 12 fit, the rest waits in the queue.
        QCOMPARE(ring.readAvailable(), std::size_t(16));
        QCOMPARE(q.audioBufferCount(), 2);

        qint16 out[4];
        QVERIFY(ring.read(out, 4));
        QCOMPARE(out[0], qint16(200));
        QCOMPARE(out[3], qint16(-400));
        q.pumpAudio(2.0, 0.0);
        // The first buffer is played and retired; the second is now wholly in the ring.
        QCOMPARE(q.audioBufferCount(), 1);
        QCOMPARE(ring.readAvailable(), std::size_t(16));
        QCOMPARE(q.audioSpan().oldest, 0.1);

        // A seek flushes what the ring still holds: the callback skips it.
        q.newSerial();
        ring.applyFlush();
        QCOMPARE(ring.readAvailable(), std::size_t(0));
        QCOMPARE(q.audioBufferCount(), 0);
    }

    // Sound the device never takes goes once over 2 s behind the clock; without a ring the
    // clock alone retires it.
    void pastSoundIsRetired_data()
    {
        QTest::addColumn<bool>("withRing");
        QTest::addColumn<int>("leftAtZero"); // after a pump at clock 0
        QTest::addColumn<double>("clock");
        QTest::newRow("ring never takes it, 2 s past") << true << 10 << 3.2;
        QTest::newRow("no ring, clock retires it") << false << 9 << 1.2;
    }
    void pastSoundIsRetired()
    {
        QFETCH(bool, withRing);
        QFETCH(int, leftAtZero);
        QFETCH(double, clock);
        OVAudioRing ring(8);
        OVPlaybackQueues q;
        if (withRing)
            q.setAudioRing(&ring);
        const quint64 s = q.newSerial();
        for (int i = 0; i < 10; ++i)
            q.pushAudioBuffer(soundAt(i * 0.5), s, false);
        q.pumpAudio(1.0, 0.0);
        QCOMPARE(q.audioBufferCount(), leftAtZero);
        q.pumpAudio(1.0, clock);
        QCOMPARE(q.audioBufferCount(), 7);
        QCOMPARE(q.audioSpan().oldest, 1.5);
    }

    // Each stretch written into the ring carries its clock time, also when a buffer goes in
    // in parts because the ring was full, and sound the callback skipped is retired.
    void pumpedSoundIsStampedWithItsTime()
    {
        OVAudioRing ring(16384); // room for 8192 frames: the second buffer goes in in parts
        OVPlaybackQueues q;
        q.setAudioRing(&ring);
        const quint64 s = q.newSerial();
        QVERIFY(q.pushAudioBuffer(soundAt(1.0, std::vector<qint16>(9600, 1)), s, false));
        QVERIFY(q.pushAudioBuffer(soundAt(1.1, std::vector<qint16>(9600, 2)), s, false));
        q.pumpAudio(1.0, 1.0);
        ring.applyFlush();
        double t = 0;
        QVERIFY(ring.timeAtRead(2, 48000, &t));
        QCOMPARE(t, 1.0);
        QCOMPARE(ring.skip(7200), std::size_t(7200)); // 3600 frames: 75 ms
        QVERIFY(ring.timeAtRead(2, 48000, &t));
        QCOMPARE(t, 1.075);
        QCOMPARE(ring.skip(2400), std::size_t(2400)); // into the second buffer
        QVERIFY(ring.timeAtRead(2, 48000, &t));
        QCOMPARE(t, 1.1);
        // The first buffer was skipped over: it goes, and the rest of the second comes in
        // stamped where it continues.
        q.pumpAudio(1.0, 1.1);
        QCOMPARE(q.audioBufferCount(), 1);
        QCOMPARE(ring.skip(6784), std::size_t(6784)); // to where the first pump stopped
        QVERIFY(ring.timeAtRead(2, 48000, &t));
        QVERIFY(qFuzzyCompare(t, 1.1 + 3392.0 / 48000));
    }

    // The decoding thread queues and pumps while a callback thread drains the ring through the
    // fill routine and a GUI thread seeks now and then: every callback buffer that comes out is
    // exactly one that went in, never a mix of two, and carries that one's time (run under
    // ThreadSanitizer too).
    void threadsMeetOnlyThroughTheRing()
    {
        OVAudioRing ring(4096);
        OVPlaybackQueues q;
        q.setAudioRing(&ring);
        std::atomic<quint64> serial{q.newSerial()};
        std::atomic<bool> stop{false};

        // Buffer k holds 512 samples all equal to k (1…30000), so any tear shows.
        std::thread decoder([&] {
            qint16 k = 1;
            quint64 mine = serial.load();
            while (!stop.load()) {
                if (serial.load() != mine)
                    mine = serial.load();
                q.pushAudioBuffer(soundAt(k * 0.01, std::vector<qint16>(512, k)), mine, false);
                k = qint16(k % 30000 + 1);
                q.pumpAudio(1.0, 0.0);
                while (!stop.load() && ring.writeAvailable() < 512 && serial.load() == mine) {
                    q.pumpAudio(1.0, 0.0);
                    QThread::usleep(200);
                }
            }
        });
        std::atomic<int> tears{0};
        std::atomic<int> wrongTimes{0};
        std::atomic<quint64> consumed{0};
        std::thread callback([&] {
            std::vector<qint16> out(512);
            while (!stop.load()) {
                ring.applyFlush();
                double stamped = -1.0;
                // As the real callback: nothing is read before its time is known (the sound may
                // arrive between the two calls).
                const std::size_t n = ring.timeAtRead(2, 48000, &stamped)
                                          ? OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, false)
                                          : 0;
                if (n == 0) {
                    QThread::usleep(100);
                    continue;
                }
                consumed += n;
                // Reads fall on buffer starts, where the stamp is the buffer's own time.
                if (std::abs(stamped - out[0] * 0.01) > 1e-9)
                    ++wrongTimes;
                for (qint16 v : out) {
                    if (v != out[0])
                        ++tears;
                }
            }
        });
        for (int i = 0; i < 20; ++i) {
            QThread::msleep(10);
            serial = q.newSerial();
        }
        QThread::msleep(50);
        stop = true;
        decoder.join();
        callback.join();
        QVERIFY(consumed.load() > 0);
        QCOMPARE(tears.load(), 0);
        QCOMPARE(wrongTimes.load(), 0);
    }
};

QTEST_GUILESS_MAIN(TestOVPlaybackQueues)
#include "tst_ovplaybackqueues.moc"
