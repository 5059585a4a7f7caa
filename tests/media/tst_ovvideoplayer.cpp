#include "mediatesthelper.h"

#include "media/ovvideoplayer.h"

#include <QElapsedTimer>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cmath>

namespace {

using MediaTest::args;
using MediaTest::FramePuller;

// Opens `path` with the sound device off and waits until the clock runs.
bool startQuiet(OVVideoPlayer &player, const QString &path)
{
    player.setAudioOutputEnabled(false);
    return player.open(path)
           && QTest::qWaitFor([&] { return player.engine().clock().hasOrigin(); }, 20000);
}

} // namespace

class TestOVVideoPlayer : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_clip;       // 6 s, 25 fps, keyframe every 2 s, with sound
    QString m_threeAudio; // 6 s, three audio streams at different rates
    QString m_soundOnly;  // 4 s of sound

    QString need(const QString &path)
    {
        if (path.isEmpty())
            QTest::qFail("test media could not be generated", __FILE__, __LINE__);
        return path;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!MediaTest::haveFfmpeg())
            QSKIP("the ffmpeg tool is not installed");
        QVERIFY(m_dir.isValid());
        const QString dir = m_dir.path();
        m_clip = MediaTest::generate(dir, QStringLiteral("clip.mp4"), args(
            "-f lavfi -i testsrc=size=320x240:rate=25:duration=6 -f lavfi -i sine=frequency=440:sample_rate=48000:duration=6 "
            "-c:v libx264 -preset ultrafast -g 50 -pix_fmt yuv420p -c:a aac -shortest"));
        m_threeAudio = MediaTest::generate(dir, QStringLiteral("three.mkv"), args(
            "-f lavfi -i testsrc=size=320x240:rate=25:duration=6 -f lavfi -i sine=frequency=300:sample_rate=22050:duration=6 "
            "-f lavfi -i sine=frequency=500:sample_rate=32000:duration=6 -f lavfi -i sine=frequency=700:sample_rate=44100:duration=6 "
            "-map 0 -map 1 -map 2 -map 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a pcm_s16le"));
        m_soundOnly = MediaTest::generate(dir, QStringLiteral("sound.wav"),
                                          args("-f lavfi -i sine=frequency=440:sample_rate=44100:duration=4"));
    }

    // The position rules seen from outside: the target while a seek is under way, frozen while
    // paused, 0 once closed (wall time while playing: realPlayback).
    void clockRules()
    {
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        QSignalSpy init(&player, &OVVideoDecoderBase::initFinished);
        QVERIFY(player.open(need(m_clip)));
        QVERIFY(init.wait(20000) || init.count() == 1);
        QCOMPARE(init.first().first().toInt(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);

        player.pause();
        QCOMPARE(player.state(), OVVideoPlayer::Paused);
        const double paused = player.position();
        QTest::qWait(200);
        QCOMPARE(player.position(), paused);
        player.resume();
        QCOMPARE(player.state(), OVVideoPlayer::Playing);
        QTest::qWait(150);
        QVERIFY(player.position() > paused);

        // Seeking: the target is reported until a picture of it comes, then time runs from it.
        player.seek(4.0);
        QCOMPARE(player.position(), 4.0);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        QTest::qWait(100);
        QVERIFY(player.position() >= 3.9);
        QVERIFY(player.position() < 5.5);

        player.close();
        QCOMPARE(player.state(), OVVideoPlayer::Stopped);
        QCOMPARE(player.position(), 0.0);
    }

    // A seek that is not to start shows the target's picture and stays paused there; after the
    // end it starts the file again.
    void seekWithoutAutoStart_data()
    {
        QTest::addColumn<double>("target");
        QTest::addColumn<bool>("pauseFirst");
        QTest::addColumn<bool>("afterEnd");
        QTest::newRow("forward past a keyframe, paused") << 4.52 << true << false;
        QTest::newRow("backward") << 0.5 << false << false;
        // Only the last picture (5.96 s) lies past the target: there is no second one to pause on.
        QTest::newRow("onto the last picture, paused") << 5.95 << true << false;
        QTest::newRow("after the end") << 1.0 << false << true;
    }
    void seekWithoutAutoStart()
    {
        QFETCH(double, target);
        QFETCH(bool, pauseFirst);
        QFETCH(bool, afterEnd);
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        FramePuller puller(&player);
        QSignalSpy finished(&player, &OVVideoDecoderBase::videoFinished);
        QVERIFY(player.open(need(m_clip)));
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(puller.shown > 0, 20000);
        if (target < 1.0) {
            player.seek(2.0);
            QTRY_VERIFY_WITH_TIMEOUT(puller.last && puller.last->time >= 2.0, 20000);
        }
        if (afterEnd) {
            player.seek(5.0);
            QVERIFY(finished.wait(20000) || finished.count() == 1);
            QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 10000);
        }
        if (pauseFirst) {
            player.pause();
            QCOMPARE(player.state(), OVVideoPlayer::Paused);
        }
        QSignalSpy changed(&player, &OVVideoPlayer::stateChanged);
        puller.last = {}; // a picture from before the seek may lie past the target too
        player.seek(target, false);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Paused, 20000);
        // state() is the decoding thread's at once; the announcement of it follows queued.
        QTRY_VERIFY_WITH_TIMEOUT(changed.count() > 0, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(puller.last && puller.last->time >= target - 1e-6, 20000);
        const double shownAt = puller.last->time;
        // The picture is the one at the target or the next: no later.
        QVERIFY2(shownAt < target + 0.1, qPrintable(QString::number(shownAt)));
        const double pos = player.position();
        QVERIFY(pos >= target - 1e-6);
        QTest::qWait(300);
        QCOMPARE(player.position(), pos);
        QCOMPARE(puller.last->time, shownAt);
        QCOMPARE(player.state(), OVVideoPlayer::Paused);
    }

    // Six seconds of real playback: the position keeps to wall time and the run ends by itself.
    void realPlayback()
    {
        OVVideoPlayer player;
        double published = -1;
        player.setPublishingPosition(true);
        connect(&player, &OVVideoPlayer::positionChanged, this, [&published](double pos) { published = pos; });
        FramePuller puller(&player);
        QSignalSpy finished(&player, &OVVideoDecoderBase::videoFinished);
        QVERIFY(player.open(need(m_clip)));
        // The frame slots (1/25 s) at which this thread looked: when it is starved of CPU it
        // looks less often than the pictures change, and the puller, looking at the same
        // moments, can only show the newest picture of each look.
        QSet<int> slotsLookedAt;
        QTimer looker;
        connect(&looker, &QTimer::timeout, this, [&] { slotsLookedAt.insert(int(player.position() * 25)); });
        looker.start(5);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        QElapsedTimer wall;
        wall.start();
        const double p0 = player.position();
        const double p0ReadBy = wall.elapsed() / 1000.0;
        double worst = 0.0;
        while (wall.elapsed() < 4500 && player.state() == OVVideoPlayer::Playing) {
            QTest::qWait(250);
            // Wall time is read on both sides of each position: a preemption in between is not
            // drift of the clock.
            const double before = wall.elapsed() / 1000.0;
            const double moved = player.position() - p0;
            const double after = wall.elapsed() / 1000.0;
            worst = std::max({ worst, moved - after, (before - p0ReadBy) - moved });
        }
        QVERIFY2(worst < 0.05, qPrintable(QString::number(worst)));
        QVERIFY(published > 3.0);
        QVERIFY(finished.wait(20000) || finished.count() == 1);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 5000);
        // Pictures were shown up to the end, every one reached the queue, and a new one was
        // there at nearly every slot this thread looked at.
        QVERIFY(puller.last);
        QVERIFY2(puller.last->time > 5.5, qPrintable(QString::number(puller.last->time)));
        QVERIFY2(player.engine().queues().videoFramesQueued() == 150,
                 qPrintable(QString::number(player.engine().queues().videoFramesQueued())));
        QVERIFY2(puller.shown > 0.8 * std::min<qsizetype>(150, slotsLookedAt.size()),
                 qPrintable(QStringLiteral("%1 of %2").arg(puller.shown).arg(slotsLookedAt.size())));
        QVERIFY(published > 5.5);
    }

    // At twice the speed the clock runs twice as fast and sound is stretched to half length.
    void speedChange()
    {
        OVVideoPlayer player;
        FramePuller puller(&player);
        QVERIFY(startQuiet(player, need(m_clip)));
        QTest::qWait(300);
        player.setTimeFactor(0.5);
        QTRY_COMPARE_WITH_TIMEOUT(player.engine().clock().timeFactor(), 0.5, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        QElapsedTimer wall;
        wall.start();
        const double p0 = player.position();
        const double p0ReadBy = wall.elapsed() / 1000.0;
        QTest::qWait(1000);
        const double before = wall.elapsed() / 1000.0;
        const double moved = player.position() - p0;
        const double after = wall.elapsed() / 1000.0;
        // Between the readings lay at least before − p0ReadBy and at most after seconds.
        QVERIFY2(moved / after > 1.9 && moved / (before - p0ReadBy) < 2.1,
                 qPrintable(QStringLiteral("%1 s in %2 to %3 s").arg(moved).arg(before - p0ReadBy).arg(after)));
    }

    // Speed changes while playing, in quick succession as from a held key, and in the last
    // seconds, when every packet has been read and the run only waits for its queued pictures:
    // each is a seek to where playback is, and none may move it back.
    void speedStepsKeepThePosition_data()
    {
        QTest::addColumn<double>("from");
        QTest::addColumn<bool>("paused");
        QTest::newRow("in the middle") << 1.0 << false;
        QTest::newRow("near the end") << 5.2 << false;
        QTest::newRow("paused near the end") << 5.2 << true;
    }
    void speedStepsKeepThePosition()
    {
        QFETCH(double, from);
        QFETCH(bool, paused);
        OVVideoPlayer player;
        FramePuller puller(&player);
        QVERIFY(startQuiet(player, need(m_clip)));
        player.seek(from);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin() && player.position() > from + 0.2, 20000);
        if (from > 5.0)
            QTRY_VERIFY_WITH_TIMEOUT(player.isDecodingFinished(), 20000);
        if (paused) {
            player.pause();
            const double pausedAt = player.position();
            for (double speed : {1.1, 1.21, 2.0})
                player.setTimeFactor(1.0 / speed);
            // Still paused, on the same picture, now at the new speed.
            QTRY_VERIFY_WITH_TIMEOUT(player.state() == OVVideoPlayer::Paused && player.timeFactor() == 0.5
                                         && player.engine().clock().hasOrigin(),
                                     20000);
            QVERIFY2(std::abs(player.position() - pausedAt) < 0.1,
                     qPrintable(QStringLiteral("%1 -> %2").arg(pausedAt).arg(player.position())));
            return;
        }
        // From here on the position and the pictures go forward to the end, where playback stops.
        double latest = player.position();
        double shown = player.lastShownTime();
        auto forward = [&] {
            // Read before asking whether the run goes on: a run that has just ended reads 0.
            const double p = player.position();
            if (player.engine().clock().isDecoding()) {
                if (p < latest - 0.05)
                    return false;
                latest = std::max(latest, p);
            }
            if (player.lastShownTime() < shown - 1e-6)
                return false;
            shown = player.lastShownTime();
            return true;
        };
        double speed = 1.0;
        for (int i = 0; i < 8; ++i) {
            speed = std::min(2.0, speed * 1.1);
            player.setTimeFactor(1.0 / speed);
            QTest::qWait(5);
            QVERIFY2(forward(), qPrintable(QStringLiteral("back to %1").arg(player.position())));
        }
        QElapsedTimer wall;
        wall.start();
        while (wall.elapsed() < 4000) {
            QTest::qWait(20);
            QVERIFY2(forward(), qPrintable(QStringLiteral("back to %1").arg(player.position())));
        }
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 10000);
        // How close to the end the last picture came depends on how fast the machine decodes.
        QVERIFY2(shown > from, qPrintable(QString::number(shown)));
    }

    // A speed change after the last packet ends the run, and the next one carries it out. Until
    // the GUI thread hears of the end, the player still runs: a key pressed then codes the
    // position, which must not read as the start.
    void speedChangeAfterTheLastPacketKeepsThePosition()
    {
        OVVideoPlayer player;
        FramePuller puller(&player);
        QVERIFY(startQuiet(player, need(m_clip)));
        player.seek(5.2);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin() && player.isDecodingFinished(), 20000);
        const double before = player.position();
        player.setTimeFactor(0.5);
        // No events from here on: the run's end is not taken in yet.
        QElapsedTimer wall;
        wall.start();
        while (player.engine().clock().isDecoding() && wall.elapsed() < 20000)
            QThread::msleep(1);
        QVERIFY(!player.engine().clock().isDecoding());
        QCOMPARE(player.state(), OVVideoPlayer::Playing);
        QVERIFY2(std::abs(player.position() - before) < 0.1,
                 qPrintable(QStringLiteral("%1 -> %2").arg(before).arg(player.position())));
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin() && player.timeFactor() == 0.5, 20000);
        QVERIFY(player.position() >= before - 1e-9);
    }

    void loopsOverPlayRange_data()
    {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("length");
        QTest::addColumn<double>("wantStart");
        QTest::addColumn<double>("wantEnd");
        QTest::newRow("at the start") << -1.0 << 1.5 << 0.0 << 1.5;
        // Reaching the end of the file would stop playback: the range ends just before it.
        QTest::newRow("at the end") << 4.5 << 5.0 << 4.5 << 5.9;
    }
    // Looping keeps playback inside the range: back to its start at its end, and from anywhere
    // outside it, with the one clock running on.
    void loopsOverPlayRange()
    {
        QFETCH(double, start);
        QFETCH(double, length);
        QFETCH(double, wantStart);
        QFETCH(double, wantEnd);
        OVVideoPlayer player;
        FramePuller puller(&player);
        QVERIFY(startQuiet(player, need(m_clip)));
        player.setPlayRange(start, length);
        player.setLooping(true);
        QVERIFY(qAbs(player.playRangeStart() - wantStart) < 1e-9);
        QVERIFY(qAbs(player.playRangeStart() + player.playRangeLength() - wantEnd) < 1e-9);
        QElapsedTimer wall;
        wall.start();
        double last = player.position(), highest = 0.0;
        int wraps = 0;
        while (wall.elapsed() < 4000) {
            QTest::qWait(20);
            const double pos = player.position();
            if (pos < last - 0.5)
                ++wraps;
            highest = std::max(highest, pos);
            last = pos;
        }
        QVERIFY2(wraps >= 1, qPrintable(QString::number(wraps)));
        // One tick of the player's timer and one of ours may pass before the jump back.
        QVERIFY2(highest < wantEnd + 0.2, qPrintable(QString::number(highest)));
        QVERIFY2(last >= wantStart - 1e-9, qPrintable(QStringLiteral("%1, state %2, %3 wraps").arg(last).arg(int(player.state())).arg(wraps)));
        // Decoding may reach the end of the file ahead of the clock; playback goes on regardless.
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 5000);
        const double before = player.position();
        QTRY_VERIFY_WITH_TIMEOUT(player.position() != before, 5000);
    }

    // Choosing another of three sound tracks restarts on it where playback was.
    void audioStreamSwitchKeepsPosition()
    {
        OVVideoPlayer player;
        QVERIFY(startQuiet(player, need(m_threeAudio)));
        QCOMPARE(player.audioStreamCount(), 3);
        QCOMPARE(player.audioSampleRate(), 22050);
        QTest::qWait(1500);
        QElapsedTimer sinceBefore;
        sinceBefore.start();
        const double before = player.position();
        player.setPreferredAudioStream(2);
        // Right after the restart the position is the one it had.
        QVERIFY2(std::abs(player.position() - before) < 0.3,
                 qPrintable(QStringLiteral("%1 %2").arg(before).arg(player.position())));
        QTRY_VERIFY_WITH_TIMEOUT(player.state() == OVVideoPlayer::Playing && player.engine().clock().hasOrigin(),
                                 20000);
        QCOMPARE(player.audioSampleRate(), 44100);
        // From there the clock runs on; how long the restart took depends on the machine.
        const double moved = player.position() - before;
        QVERIFY2(moved > -0.3 && moved < sinceBefore.elapsed() / 1000.0 + 0.3,
                 qPrintable(QStringLiteral("%1 s after %2 s").arg(moved).arg(sinceBefore.elapsed() / 1000.0)));
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().queues().audioBuffersQueued() > 0, 20000);

        // Paused, the switch keeps it paused at the same place.
        player.pause();
        const double pausedAt = player.position();
        player.setPreferredAudioStream(1);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Paused, 20000);
        QCOMPARE(player.audioSampleRate(), 32000);
        QVERIFY2(std::abs(player.position() - pausedAt) < 0.2,
                 qPrintable(QStringLiteral("%1 %2").arg(pausedAt).arg(player.position())));
    }

    // A file of sound alone plays on the clock and shows the placeholder picture.
    void soundOnly()
    {
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        FramePuller puller(&player);
        QSignalSpy finished(&player, &OVVideoDecoderBase::videoFinished);
        QVERIFY(player.open(need(m_soundOnly)));
        QTRY_VERIFY_WITH_TIMEOUT(puller.last != nullptr, 20000);
        QVERIFY(!player.hasVideoStream());
        QVERIFY(player.hasAudioStream());
        QVERIFY(!puller.last->image.isNull());
        // Shown once, not at every poll.
        QTest::qWait(200);
        QCOMPARE(puller.shown, 1);
        QTRY_VERIFY_WITH_TIMEOUT(player.position() > 1.0, 20000);
        QVERIFY(finished.wait(20000) || finished.count() == 1);
    }

    // A missing file fails at once with a message; a file that is no media fails in start-up.
    void openFailures()
    {
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        QVERIFY(!player.open(m_dir.filePath(QStringLiteral("missing.mp4"))));
        QVERIFY(player.openError().code() != 0);
        QVERIFY(!player.openError().message().isEmpty());

        const QString junk = m_dir.filePath(QStringLiteral("junk.mp4"));
        QVERIFY(MediaTest::writeFile(junk, QByteArray(4096, 'x')));
        QSignalSpy init(&player, &OVVideoDecoderBase::initFinished);
        QVERIFY(player.open(junk));
        QVERIFY(init.wait(20000) || init.count() == 1);
        QVERIFY(init.first().first().toInt() != 0);
        QVERIFY(!player.lastError().message().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 10000);
    }
};

QTEST_MAIN(TestOVVideoPlayer)
#include "tst_ovvideoplayer.moc"
