#include "media/ovaudioout.h"
#include "media/ovaudioring.h"
#include "media/ovplaybackengine.h"

#include <QScopeGuard>
#include <QTest>
#include <QThread>

#include <atomic>
#include <cmath>
#include <thread>

namespace {

constexpr double Fps = 25.0;
constexpr int KeyframeEvery = 12;

// Plays the decoder's part: 25 pictures a second, each followed by one sound frame of the same
// time, keyframes every 12 pictures, and a seek that lands on the keyframe before the target.
struct FakeDecoder
{
    FakeDecoder(OVPlaybackEngine &e, std::function<bool()> s) : engine(e), stopping(std::move(s)) {}

    OVPlaybackEngine &engine;
    std::function<bool()> stopping;
    bool withVideo = true;
    int next = 0;
    int seeks = 0;
    double lastSeekTarget = -1.0;
    int pausedAnnouncements = 0;
    // (pictures queued since the seek, sound accepted) for every sound frame offered.
    QList<QPair<int, bool>> soundOffers;

    void seekTo(double target)
    {
        ++seeks;
        lastSeekTarget = target;
        next = int(std::floor(target * Fps / KeyframeEvery)) * KeyframeEvery;
    }

    // Returns false when stopping.
    bool step()
    {
        const int i = next++;
        const double pts = i / Fps;
        if (withVideo) {
            if (!engine.beforeVideoFrame(stopping))
                return false;
            const double t = engine.frameTime(pts);
            if (engine.keepVideoFrame(t, 1.0 / Fps)) {
                OVPlaybackQueues::VideoFrame f;
                f.time = t;
                if (engine.queueVideoFrame(std::move(f)))
                    ++pausedAnnouncements;
            }
            engine.applyPendingSeek([this](double target) { seekTo(target); });
        }
        const int pictures = engine.queues().framesSinceSeek();
        const bool accepted = engine.beforeAudioFrame(stopping);
        soundOffers.append({pictures, accepted});
        if (accepted) {
            const double t = engine.frameTime(pts);
            if (engine.keepAudioFrame(t, 1.0 / Fps)) {
                OVPlaybackQueues::AudioBuffer b;
                b.time = t;
                b.sampleRate = 48000;
                const int frames = 1920 * engine.timeFactor();
                b.samples.assign(std::size_t(frames) * 2, qint16(i % 30000 + 1));
                if (engine.queueAudioBuffer(std::move(b)))
                    ++pausedAnnouncements;
            }
        }
        if (!withVideo)
            engine.applyPendingSeek([this](double target) { seekTo(target); });
        return true;
    }
};

} // namespace

// The hooks' order driven from one thread with a hand-set clock: time passes only where the
// decoder would sleep.
class TestOVPlaybackEngine : public QObject
{
    Q_OBJECT

private:
    double m_now = 5000.0;

    // A decoder whose every throttle check moves the hand-set clock by 10 ms.
    FakeDecoder stepping(OVPlaybackEngine &engine)
    {
        return FakeDecoder{engine, [this] {
                               m_now += 0.01;
                               return false;
                           }};
    }

private Q_SLOTS:
    void init() { m_now = 5000.0; }

    void seekWithoutAutoStartShowsTheTargetAndWaitsForPictures()
    {
        OVPlaybackEngine engine([this] { return m_now; });
        FakeDecoder dec = stepping(engine);
        engine.begin(true, 0.0, nullptr);
        for (int i = 0; i < 50; ++i)
            QVERIFY(dec.step());
        QVERIFY(engine.position() > 0.0);

        QVERIFY(!engine.seek(5.0, false));
        QCOMPARE(engine.position(), 5.0);
        QCOMPARE(engine.queues().videoFrameCount(), 0);
        dec.soundOffers.clear();
        // The next hook carries out the seek; pictures before the target are dropped; the
        // second one kept pauses the player.
        for (int guard = 0; !engine.isPaused() && guard < 100; ++guard)
            QVERIFY(dec.step());
        QVERIFY(engine.isPaused());
        QCOMPARE(dec.seeks, 1);
        QCOMPARE(dec.lastSeekTarget, 5.0);
        QCOMPARE(dec.pausedAnnouncements, 1);
        QCOMPARE(engine.queues().framesSinceSeek(), 2);
        QCOMPARE(engine.position(), 126 / Fps);
        m_now += 3.0;
        QCOMPARE(engine.position(), 126 / Fps);
        const auto shown = engine.takeDueFrame();
        QVERIFY(shown);
        QVERIFY(shown->time >= 5.0);
        QVERIFY(!engine.takeDueFrame());

        // Playing on: the first four pictures after the seek are silent, sound starts with the
        // fifth.
        QVERIFY(engine.resume());
        for (int i = 0; i < 4; ++i)
            QVERIFY(dec.step());
        QList<QPair<int, bool>> sinceSeek;
        for (const auto &offer : dec.soundOffers) {
            if (offer.first > 0)
                sinceSeek.append(offer);
        }
        const QList<QPair<int, bool>> expected = {{1, false}, {2, false}, {3, false},
                                                  {4, false}, {5, true},  {6, true}};
        QCOMPARE(sinceSeek, expected);
        QVERIFY(engine.queues().audioBufferCount() > 0);
    }

    void speedChangeRefillsAtTheNewRate()
    {
        OVPlaybackEngine engine([this] { return m_now; });
        FakeDecoder dec = stepping(engine);
        engine.begin(true, 0.0, nullptr);
        for (int i = 0; i < 30; ++i)
            QVERIFY(dec.step());
        m_now += 0.5;
        const double before = engine.position();
        const quint64 serial = engine.queues().serial();
        engine.setTimeFactor(2.0);
        QCOMPARE(engine.timeFactor(), 1.0);
        // Nothing decoded at the old rate is left to be judged by the new clock.
        QCOMPARE(engine.queues().videoFrameCount(), 0);
        QVERIFY(!engine.takeDueFrame());
        QVERIFY(dec.step());
        QCOMPARE(engine.timeFactor(), 2.0);
        QCOMPARE(dec.seeks, 1);
        // The seek goes to where the clock was when the hook ran (the fake clock moves a step
        // each time the hook asks whether to stop).
        QVERIFY(dec.lastSeekTarget >= before && dec.lastSeekTarget < before + 0.05);
        QVERIFY(engine.queues().serial() != serial);
        while (engine.queues().videoFrameCount() < 3)
            QVERIFY(dec.step());
        // Picture times are on the slowed clock: media time × 2, none before the target.
        const auto span = engine.queues().videoSpan();
        QVERIFY(span.oldest >= before * 2.0);
        QVERIFY(std::fmod(span.oldest * Fps / 2.0 + 1e-6, 1.0) < 1e-3);
        // One wall second now moves half a media second.
        const double p = engine.position();
        m_now += 1.0;
        QVERIFY(qFuzzyCompare(engine.position(), p + 0.5));
    }

    // A drag on the speed bar: changes come faster than the seek back to the keyframe reaches
    // the playing position. They join that seek instead of starting it over each time, and
    // playback goes on from where the drag began.
    void speedDragSeeksOnce()
    {
        OVPlaybackEngine engine([this] { return m_now; });
        FakeDecoder dec = stepping(engine);
        engine.begin(true, 0.0, nullptr);
        for (int i = 0; i < 30; ++i)
            QVERIFY(dec.step());
        m_now += 0.7;
        const double before = engine.position();
        double speed = 1.0;
        for (int change = 0; change < 6; ++change) {
            speed *= 1.1;
            engine.setTimeFactor(1.0 / speed);
            QVERIFY(dec.step());
            QCOMPARE(dec.seeks, 1);
        }
        QVERIFY(!engine.clock().hasOrigin()); // the changes all came during the one seek
        while (engine.queues().videoFrameCount() < 3)
            QVERIFY(dec.step());
        QCOMPARE(dec.seeks, 1);
        QCOMPARE(engine.timeFactor(), 1.0 / speed);
        // On the new clock from the first picture at the place the drag began.
        const auto span = engine.queues().videoSpan();
        QVERIFY(dec.lastSeekTarget >= before && dec.lastSeekTarget < before + 0.05);
        QVERIFY2(std::abs(span.oldest - std::ceil(dec.lastSeekTarget * Fps - 1e-6) / Fps / speed) < 1e-6,
                 qPrintable(QStringLiteral("%1 %2 %3").arg(span.oldest).arg(dec.lastSeekTarget).arg(speed)));
        QVERIFY(engine.position() >= before - 1e-9);
    }

    void soundOnlySourceKeepsTimeByItsSound()
    {
        OVPlaybackEngine engine([this] { return m_now; });
        FakeDecoder dec = stepping(engine);
        dec.withVideo = false;
        engine.begin(false, 0.0, nullptr);
        QVERIFY(dec.step());
        QVERIFY(engine.clock().hasOrigin());
        // No pictures to wait for.
        QCOMPARE(dec.soundOffers.first().second, true);
        engine.seek(2.0, false);
        for (int guard = 0; !engine.isPaused() && guard < 100; ++guard)
            QVERIFY(dec.step());
        QVERIFY(engine.isPaused());
        QCOMPARE(engine.position(), 51 / Fps);
        // The throttle measures the sound queue: nothing consumes (no ring, clock paused).
        QVERIFY(engine.resume());
        for (int i = 0; i < 200; ++i)
            QVERIFY(dec.step());
        const auto span = engine.queues().audioSpan();
        QVERIFY2(span.length() <= 2.0 + 1.0 / Fps + 1e-9, qPrintable(QString::number(span.length())));
    }

    void playRange_data()
    {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("length");
        QTest::addColumn<double>("duration");
        QTest::addColumn<double>("wantStart");
        QTest::addColumn<double>("wantLength");
        QTest::newRow("inside") << 10.0 << 5.0 << 60.0 << 10.0 << 5.0;
        QTest::newRow("negative start") << -3.0 << 5.0 << 60.0 << 0.0 << 5.0;
        QTest::newRow("short length") << 10.0 << 0.2 << 60.0 << 10.0 << 1.0;
        QTest::newRow("reaches the end") << 50.0 << 10.0 << 60.0 << 50.0 << 9.9;
        QTest::newRow("duration unknown") << 10.0 << 5.0 << 0.0 << 10.0 << 5.0;
    }
    void playRange()
    {
        QFETCH(double, start);
        QFETCH(double, length);
        QFETCH(double, duration);
        QFETCH(double, wantStart);
        QFETCH(double, wantLength);
        OVPlaybackEngine engine;
        engine.setPlayRange(start, length, duration);
        QCOMPARE(engine.playRangeStart(), wantStart);
        QVERIFY(qFuzzyCompare(engine.playRangeLength(), wantLength));
    }

    void startOffsetIsTakenOff()
    {
        OVPlaybackEngine engine([this] { return m_now; });
        engine.begin(true, 10.0, nullptr);
        QCOMPARE(engine.frameTime(12.5), 2.5);
        engine.setTimeFactor(0.5);
        engine.applyPendingSeek({});
        QCOMPARE(engine.frameTime(12.5), 1.25);
        engine.end();
        QCOMPARE(engine.position(), 0.0);
    }

    // The real threads: a decoder thread running the hooks on the wall clock into a ring, a
    // callback thread draining the ring, and the GUI thread seeking, pausing and taking
    // pictures. No picture of a seek is earlier than its target. (Also run under
    // ThreadSanitizer.)
    void threadsTogether()
    {
        OVPlaybackEngine engine;
        OVAudioRing ring(48000 * 2);
        std::atomic<bool> stop{false};
        std::atomic<bool> started{false};
        std::thread decoder([&] {
            FakeDecoder dec{engine, [&] { return stop.load(); }};
            engine.begin(true, 0.0, &ring);
            started = true;
            while (!stop.load() && dec.step()) {
                if (dec.next > 3000)
                    dec.next = 0;
            }
            engine.end();
        });
        std::thread callback([&] {
            std::vector<qint16> out(512);
            while (!stop.load()) {
                ring.applyFlush();
                OVAudioOut::fillBuffer(ring, out.data(), 256, 1.0, false);
                QThread::usleep(5333);
            }
        });
        const auto joiner = qScopeGuard([&] {
            stop = true;
            decoder.join();
            callback.join();
        });
        QTRY_VERIFY(started.load());

        int shown = 0;
        int early = 0;
        double target = 0.0;
        quint64 seekSerial = 0;
        for (int round = 0; round < 12; ++round) {
            if (round % 4 == 1) {
                target = 10.0 + round;
                engine.seek(target, round % 8 != 1);
                seekSerial = engine.queues().serial();
            }
            if (round == 6)
                engine.pause();
            if (round == 7)
                engine.resume();
            if (round == 9)
                engine.setTimeFactor(0.5);
            for (int i = 0; i < 10; ++i) {
                if (const auto f = engine.takeDueFrame()) {
                    ++shown;
                    if (f->serial == seekSerial && f->time < target * engine.timeFactor() - 1e-9)
                        ++early;
                }
                QThread::msleep(10);
            }
        }
        QVERIFY(shown > 0);
        QCOMPARE(early, 0);
    }
};

QTEST_GUILESS_MAIN(TestOVPlaybackEngine)
#include "tst_ovplaybackengine.moc"
