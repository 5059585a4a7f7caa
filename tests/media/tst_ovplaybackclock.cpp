#include "media/ovplaybackclock.h"

#include <QTest>

#include <algorithm>
#include <cmath>

// The clock is driven by a hand-set "now" so every rule is checked at exact times.
class TestOVPlaybackClock : public QObject
{
    Q_OBJECT

private:
    double m_now = 1000.0;
    OVPlaybackClock::TimeSource source()
    {
        return [this] { return m_now; };
    }

private Q_SLOTS:
    void init() { m_now = 1000.0; }

    void zeroWhileNotDecoding()
    {
        OVPlaybackClock clock(source());
        QCOMPARE(clock.position(), 0.0);
        clock.requestSeek(12.0, true, 1);
        QCOMPARE(clock.position(), 0.0);
        clock.setDecoding(true);
        QCOMPARE(clock.position(), 12.0);
        clock.setDecoding(false);
        QCOMPARE(clock.position(), 0.0);

        // A new run starts at 0 until its first frame, not where the last one stood.
        OVPlaybackClock restarted(source());
        restarted.setDecoding(true);
        restarted.frameKept(0.0, 0.0, true);
        m_now += 30.0;
        restarted.setDecoding(false);
        restarted.setDecoding(true);
        QVERIFY(!restarted.hasOrigin());
        QCOMPARE(restarted.position(), 0.0);
    }

    void runsFromTheFirstKeptFrame_data()
    {
        QTest::addColumn<double>("factor");
        QTest::addColumn<double>("frameTime");   // media seconds
        QTest::addColumn<double>("frameDuration");
        QTest::addColumn<double>("elapsed");     // wall seconds after the frame was kept
        QTest::addColumn<double>("expected");    // media seconds
        QTest::newRow("normal speed") << 1.0 << 10.0 << 0.04 << 2.0 << 11.96;
        QTest::newRow("half speed") << 2.0 << 10.0 << 0.04 << 2.0 << 10.96;
        QTest::newRow("double speed") << 0.5 << 10.0 << 0.04 << 2.0 << 13.96;
        QTest::newRow("at the frame") << 1.0 << 3.0 << 0.0 << 0.0 << 3.0;
    }
    void runsFromTheFirstKeptFrame()
    {
        QFETCH(double, factor);
        QFETCH(double, frameTime);
        QFETCH(double, frameDuration);
        QFETCH(double, elapsed);
        QFETCH(double, expected);

        OVPlaybackClock clock(source());
        clock.requestTimeFactor(factor);
        clock.setDecoding(true);
        OVPlaybackClock::SeekRequest r;
        QVERIFY(clock.takeSeekRequest(&r));
        QVERIFY(r.factorChanged);

        const double t = frameTime * factor;
        // Sound does not start the clock where there is video to do it.
        clock.frameKept(t, frameDuration, false);
        QVERIFY(!clock.hasOrigin());
        QCOMPARE(clock.position(), 0.0);
        clock.frameKept(t, frameDuration, true);
        QVERIFY(clock.hasOrigin());
        QCOMPARE(clock.origin(), frameDuration * factor + m_now - t);
        // A second kept frame does not move the origin.
        m_now += 0.5;
        clock.frameKept(t + 0.1, frameDuration, true);
        QCOMPARE(clock.origin(), frameDuration * factor + (m_now - 0.5) - t);
        m_now += elapsed - 0.5;
        QVERIFY(qFuzzyCompare(clock.position(), expected));
        QVERIFY(qFuzzyCompare(clock.clockPosition(), expected * factor));
    }

    // The sound card's callback follows the origin only while the clock runs: paused,
    // seeking or before the first frame it must hear nothing of an old origin.
    void soundFollowsOnlyARunningClock()
    {
        OVPlaybackClock clock(source());
        QVERIFY(std::isnan(clock.soundOrigin()));
        clock.setDecoding(true);
        QVERIFY(std::isnan(clock.soundOrigin()));
        clock.frameKept(0.0, 0.04, true);
        QCOMPARE(clock.soundOrigin(), clock.origin());
        QVERIFY(clock.pause());
        QVERIFY(std::isnan(clock.soundOrigin()));
        m_now += 2.0;
        QVERIFY(clock.resume());
        QCOMPARE(clock.soundOrigin(), clock.origin());
        clock.requestSeek(5.0, true, 7);
        QVERIFY(std::isnan(clock.soundOrigin()));
        QVERIFY(clock.takeSeekRequest(nullptr));
        QVERIFY(std::isnan(clock.soundOrigin()));
        clock.frameKept(5.0, 0.04, true);
        QCOMPARE(clock.soundOrigin(), clock.origin());
        clock.setDecoding(false);
        QVERIFY(std::isnan(clock.soundOrigin()));
    }

    void seekReportsTheTargetUntilTheFirstFrame()
    {
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        clock.frameKept(0.0, 0.0, true);
        m_now += 5.0;
        QCOMPARE(clock.position(), 5.0);

        clock.requestSeek(42.5, true, 7);
        QVERIFY(clock.isSeekPending());
        QVERIFY(!clock.hasOrigin());
        QCOMPARE(clock.position(), 42.5);
        m_now += 3.0; // the clock does not run while the seek is pending
        QCOMPARE(clock.position(), 42.5);

        // A frame of the old position arriving before the decoder took the seek changes nothing.
        clock.frameKept(5.1, 0.0, true);
        QVERIFY(!clock.hasOrigin());
        QVERIFY(clock.isBeforeSeekTarget(40.0));

        OVPlaybackClock::SeekRequest r;
        QVERIFY(clock.takeSeekRequest(&r));
        QCOMPARE(r.target, 42.5);
        QCOMPARE(r.serial, quint64(7));
        QVERIFY(!r.factorChanged);
        QVERIFY(!clock.isSeekPending());
        QVERIFY(!clock.takeSeekRequest(&r));
        // Still before the first frame at the target.
        QCOMPARE(clock.position(), 42.5);

        // Frames before the target are dropped; the first at or past it clears it.
        QVERIFY(clock.isBeforeSeekTarget(42.0));
        QVERIFY(!clock.isBeforeSeekTarget(42.5));
        clock.frameKept(42.52, 0.0, true);
        QCOMPARE(clock.seekTarget(), -1.0);
        QVERIFY(!clock.isBeforeSeekTarget(0.0));
        m_now += 1.0;
        QVERIFY(qFuzzyCompare(clock.position(), 43.52));
    }

    void factorChangeSeeksToWhereWeAre()
    {
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        clock.frameKept(0.0, 0.0, true);
        m_now += 8.0;
        clock.requestTimeFactor(0.5);
        // Nothing changes until the decoding thread applies it.
        QCOMPARE(clock.timeFactor(), 1.0);
        QVERIFY(clock.isSeekPending());
        QCOMPARE(clock.position(), 8.0);

        OVPlaybackClock::SeekRequest r;
        QVERIFY(clock.takeSeekRequest(&r));
        QVERIFY(r.factorChanged);
        QCOMPARE(r.target, 8.0);
        QCOMPARE(clock.timeFactor(), 0.5);
        QCOMPARE(clock.position(), 8.0);
        // The target is on the new clock: 8 media seconds are 4 at double speed.
        QVERIFY(clock.isBeforeSeekTarget(3.9));
        QVERIFY(!clock.isBeforeSeekTarget(4.0));
        clock.frameKept(4.0, 0.0, true);
        m_now += 1.0; // one wall second at double speed is two media seconds
        QCOMPARE(clock.position(), 10.0);
    }

    void speedStepsGoOnFromWhereTheyWereMade_data()
    {
        QTest::addColumn<bool>("runEnds");
        QTest::newRow("while decoding") << false;
        // The change comes after the last packet was read: the next run carries it out.
        QTest::newRow("after the last packet") << true;
    }
    // A drag on the speed bar is a run of quick changes, each a seek to where playback stands.
    // None may move the position back, or the steps add up to replayed footage.
    void speedStepsGoOnFromWhereTheyWereMade()
    {
        QFETCH(bool, runEnds);
        const double frame = 0.04;
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        clock.frameKept(0.0, frame, true);
        m_now += 1.216;
        double speed = 1.0;
        for (int step = 0; step < 8; ++step) {
            const double before = clock.position();
            speed = std::min(2.0, speed * 1.1);
            clock.requestTimeFactor(1.0 / speed);
            if (runEnds && step == 0) {
                clock.setDecoding(false);
                clock.setDecoding(true);
            }
            OVPlaybackClock::SeekRequest r;
            QVERIFY(clock.takeSeekRequest(&r));
            QCOMPARE(r.target, before);
            // The first frame at or past the target is kept.
            const double kept = std::ceil(r.target / frame - 1e-9) * frame;
            clock.frameKept(kept * clock.timeFactor(), frame, true);
            QVERIFY2(clock.position() >= before - 1e-9,
                     qPrintable(QStringLiteral("step %1: %2 -> %3").arg(step).arg(before).arg(clock.position())));
            m_now += 0.005;
        }
        // And it runs on at the new speed.
        const double here = clock.position();
        m_now += 1.0;
        QVERIFY(qFuzzyCompare(clock.position(), here + 2.0));
    }

    void factorChangeDuringASeekUsesTheSeekTarget()
    {
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        clock.requestSeek(30.0, true, 9);
        clock.requestTimeFactor(2.0);
        OVPlaybackClock::SeekRequest r;
        QVERIFY(clock.takeSeekRequest(&r));
        QVERIFY(r.factorChanged);
        QCOMPARE(r.target, 30.0);
        QCOMPARE(r.serial, quint64(9));
    }

    void pauseFreezesAndResumeRunsOn()
    {
        OVPlaybackClock clock(source());
        clock.requestTimeFactor(2.0);
        clock.setDecoding(true);
        clock.takeSeekRequest(nullptr);
        clock.frameKept(0.0, 0.0, true);
        m_now += 4.0;
        QCOMPARE(clock.position(), 2.0);
        QVERIFY(clock.pause());
        QVERIFY(!clock.pause());
        m_now += 100.0;
        QCOMPARE(clock.position(), 2.0);
        QVERIFY(clock.resume());
        QVERIFY(!clock.resume());
        QCOMPARE(clock.position(), 2.0);
        m_now += 2.0;
        QCOMPARE(clock.position(), 3.0);
    }

    void seekWithoutAutoStartPausesAtTheSecondFrame()
    {
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        clock.frameKept(0.0, 0.0, true);
        m_now += 1.0;
        QVERIFY(clock.pause());
        // Seeking runs the paused clock so the decoder can reach the target...
        QVERIFY(clock.requestSeek(20.0, false, 2));
        QVERIFY(!clock.isPaused());
        clock.takeSeekRequest(nullptr);
        clock.frameKept(20.04, 0.04, true);
        QVERIFY(!clock.pauseAfterSeekIfDue(1, 20.04));
        QVERIFY(!clock.isPaused());
        // ...and stops it on the second picture, showing a time at or past the target.
        QVERIFY(clock.pauseAfterSeekIfDue(2, 20.08));
        QVERIFY(clock.isPaused());
        m_now += 10.0;
        QCOMPARE(clock.position(), 20.08);
        // Only once.
        QVERIFY(clock.resume());
        QVERIFY(!clock.pauseAfterSeekIfDue(2, 20.12));
        QVERIFY(!clock.isPaused());

        // With autoStart nothing pauses.
        clock.requestSeek(5.0, true, 3);
        clock.takeSeekRequest(nullptr);
        QVERIFY(!clock.pauseAfterSeekIfDue(2, 5.0));
    }

    // Seek targets and running positions alike.
    void outOfRangeReadsAsZero_data()
    {
        QTest::addColumn<double>("seekTo");
        QTest::addColumn<double>("wallOffset"); // not 0: no seek, a clock running from a frame at 10 s
        QTest::addColumn<double>("expected");
        QTest::newRow("negative") << -0.5 << 0.0 << 0.0;
        QTest::newRow("limit") << 60000.0 << 0.0 << 60000.0;
        QTest::newRow("past limit") << 60000.5 << 0.0 << 0.0;
        QTest::newRow("nan") << std::nan("") << 0.0 << 0.0;
        // A frame stamped in the future puts the origin after now: a negative position.
        QTest::newRow("running, before its origin") << std::nan("") << -20.0 << 0.0;
        QTest::newRow("running, past the limit") << std::nan("") << 70000.0 << 0.0;
    }
    void outOfRangeReadsAsZero()
    {
        QFETCH(double, seekTo);
        QFETCH(double, wallOffset);
        QFETCH(double, expected);
        OVPlaybackClock clock(source());
        clock.setDecoding(true);
        if (wallOffset != 0.0) {
            clock.frameKept(10.0, 0.0, true);
            m_now += wallOffset;
        } else {
            clock.requestSeek(seekTo, true, 1);
        }
        QCOMPARE(clock.position(), expected);
    }

};

QTEST_GUILESS_MAIN(TestOVPlaybackClock)
#include "tst_ovplaybackclock.moc"
