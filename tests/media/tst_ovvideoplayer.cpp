#include "mediatesthelper.h"

#include "media/ovvideoplayer.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cmath>

namespace {

// A player that checks, inside its own hooks, the rule that sound waits for five pictures.
class CheckingPlayer : public OVVideoPlayer
{
    Q_OBJECT
public:
    ~CheckingPlayer() override
    {
        stop();
        wait();
    }

    std::atomic<int> soundBeforeFifthPicture{0};
    std::atomic<int> soundQueued{0};

protected:
    void processAudioFrame(AVFrame *frame, OVAudioStream &stream) override
    {
        OVPlaybackQueues &q = engine().queues();
        const quint64 serialBefore = q.serial();
        const int pictures = q.framesSinceSeek();
        const quint64 before = q.audioBuffersQueued();
        OVVideoPlayer::processAudioFrame(frame, stream);
        const bool queued = q.audioBuffersQueued() != before;
        // A seek from the GUI thread in between makes the count meaningless for this frame.
        if (!queued || q.serial() != serialBefore)
            return;
        ++soundQueued;
        if (hasVideoStream() && pictures < OVPlaybackQueues::VideoFramesBeforeSound)
            ++soundBeforeFifthPicture;
    }
};

// Pulls due frames the way the canvas does, and remembers the last one.
class FramePuller : public QObject
{
public:
    explicit FramePuller(OVVideoPlayer *player) : m_player(player)
    {
        m_timer.setInterval(5);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            if (auto f = m_player->takeDueFrame()) {
                last = f;
                ++shown;
            }
        });
        m_timer.start();
    }
    OVPlaybackQueues::VideoFramePtr last;
    int shown = 0;

private:
    OVVideoPlayer *m_player;
    QTimer m_timer;
};

QStringList args(const char *line)
{
    return QString::fromLatin1(line).split(u' ');
}

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
    QString m_long;       // 10 s, 25 fps, with sound
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
        m_long = MediaTest::generate(dir, QStringLiteral("long.mp4"), args(
            "-f lavfi -i testsrc=size=320x240:rate=25:duration=10 -f lavfi -i sine=frequency=440:sample_rate=44100:duration=10 "
            "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest"));
        m_threeAudio = MediaTest::generate(dir, QStringLiteral("three.mkv"), args(
            "-f lavfi -i testsrc=size=320x240:rate=25:duration=6 -f lavfi -i sine=frequency=300:sample_rate=22050:duration=6 "
            "-f lavfi -i sine=frequency=500:sample_rate=32000:duration=6 -f lavfi -i sine=frequency=700:sample_rate=44100:duration=6 "
            "-map 0 -map 1 -map 2 -map 3 -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a pcm_s16le"));
        m_soundOnly = MediaTest::generate(dir, QStringLiteral("sound.wav"),
                                          args("-f lavfi -i sine=frequency=440:sample_rate=44100:duration=4"));
    }

    // The position rules seen from outside: 0 before anything runs, the target while a seek is
    // under way, frozen while paused, wall time while playing, 0 again once closed.
    void clockRules()
    {
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        QCOMPARE(player.position(), 0.0);
        QCOMPARE(player.state(), OVVideoPlayer::Stopped);
        QSignalSpy init(&player, &OVVideoDecoderBase::initFinished);
        QVERIFY(player.open(need(m_clip)));
        QVERIFY(init.wait(20000) || init.count() == 1);
        QCOMPARE(init.first().first().toInt(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);

        // Playing: the position follows wall time.
        const double p0 = player.position();
        QElapsedTimer wall;
        wall.start();
        QTest::qWait(400);
        const double advanced = player.position() - p0;
        QVERIFY2(std::abs(advanced - wall.elapsed() / 1000.0) < 0.1, qPrintable(QString::number(advanced)));

        // Paused: frozen.
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

    // A seek that is not to start shows the target's picture and stays paused there.
    void seekWithoutAutoStart_data()
    {
        QTest::addColumn<double>("target");
        QTest::addColumn<bool>("pauseFirst");
        QTest::newRow("forward, playing") << 3.3 << false;
        QTest::newRow("forward past a keyframe, paused") << 4.52 << true;
        QTest::newRow("backward") << 0.5 << false;
    }
    void seekWithoutAutoStart()
    {
        QFETCH(double, target);
        QFETCH(bool, pauseFirst);
        OVVideoPlayer player;
        player.setAudioOutputEnabled(false);
        FramePuller puller(&player);
        QVERIFY(player.open(need(m_clip)));
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(puller.shown > 0, 20000);
        if (target < 1.0) {
            player.seek(2.0);
            QTRY_VERIFY_WITH_TIMEOUT(puller.last && puller.last->time >= 2.0, 20000);
        }
        if (pauseFirst) {
            player.pause();
            QCOMPARE(player.state(), OVVideoPlayer::Paused);
        }
        QSignalSpy changed(&player, &OVVideoPlayer::stateChanged);
        player.seek(target, false);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Paused, 20000);
        QVERIFY(changed.count() > 0);
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

    // After a start or any seek, sound is queued only once five pictures were.
    void soundWaitsForFivePictures()
    {
        CheckingPlayer player;
        player.setAudioOutputEnabled(false);
        FramePuller puller(&player);
        QVERIFY(player.open(need(m_clip)));
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(player.soundQueued.load() > 10, 20000);
        for (double target : {3.0, 1.0, 4.7, 0.2}) {
            const int before = player.soundQueued.load();
            player.seek(target);
            QTRY_VERIFY_WITH_TIMEOUT(player.soundQueued.load() > before + 5, 20000);
        }
        QCOMPARE(player.soundBeforeFifthPicture.load(), 0);
    }

    // Ten seconds of real playback: the position keeps to wall time and the run ends by itself.
    void realPlayback()
    {
        OVVideoPlayer player;
        double published = -1;
        player.setPublishingPosition(true);
        connect(&player, &OVVideoPlayer::positionChanged, this, [&published](double pos) { published = pos; });
        FramePuller puller(&player);
        QSignalSpy finished(&player, &OVVideoDecoderBase::videoFinished);
        QVERIFY(player.open(need(m_long)));
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        const double p0 = player.position();
        QElapsedTimer wall;
        wall.start();
        double worst = 0.0;
        while (wall.elapsed() < 8000 && player.state() == OVVideoPlayer::Playing) {
            QTest::qWait(250);
            const double drift = (player.position() - p0) - wall.elapsed() / 1000.0;
            worst = std::max(worst, std::abs(drift));
        }
        QVERIFY2(worst < 0.05, qPrintable(QString::number(worst)));
        QVERIFY(published > 5.0);
        QVERIFY(finished.wait(20000) || finished.count() == 1);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 5000);
        // Pictures were shown up to the end, and most of them at all.
        QVERIFY(puller.last);
        QVERIFY2(puller.last->time > 9.5, qPrintable(QString::number(puller.last->time)));
        QVERIFY2(puller.shown > 200, qPrintable(QString::number(puller.shown)));
        QVERIFY(published > 9.5);
    }

    // At twice the speed the clock runs twice as fast and sound is stretched to half length.
    void speedChange()
    {
        OVVideoPlayer player;
        FramePuller puller(&player);
        QVERIFY(startQuiet(player, need(m_long)));
        QTest::qWait(300);
        player.setTimeFactor(0.5);
        QTRY_COMPARE_WITH_TIMEOUT(player.engine().clock().timeFactor(), 0.5, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(player.engine().clock().hasOrigin(), 20000);
        const double p0 = player.position();
        QElapsedTimer wall;
        wall.start();
        QTest::qWait(1000);
        const double rate = (player.position() - p0) / (wall.elapsed() / 1000.0);
        QVERIFY2(std::abs(rate - 2.0) < 0.1, qPrintable(QString::number(rate)));
        QCOMPARE(player.speed(), 2.0);
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
        QVERIFY(last >= wantStart - 1e-9);
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
        const double before = player.position();
        player.setPreferredAudioStream(2);
        QCOMPARE(player.preferredAudioStream(), 2);
        // Right after the restart the position is the one it had.
        QVERIFY2(std::abs(player.position() - before) < 0.3,
                 qPrintable(QStringLiteral("%1 %2").arg(before).arg(player.position())));
        QTRY_VERIFY_WITH_TIMEOUT(player.state() == OVVideoPlayer::Playing && player.engine().clock().hasOrigin(),
                                 20000);
        QCOMPARE(player.audioSampleRate(), 44100);
        QVERIFY2(std::abs(player.position() - before) < 0.6,
                 qPrintable(QStringLiteral("%1 %2").arg(before).arg(player.position())));
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
        QCOMPARE(puller.last->image.size(), QSize(640, 360));
        // Shown once, not at every poll.
        QTest::qWait(200);
        QCOMPARE(puller.shown, 1);
        QTRY_VERIFY_WITH_TIMEOUT(player.position() > 1.0, 20000);
        player.seek(3.0);
        QTRY_VERIFY_WITH_TIMEOUT(player.position() > 3.2, 20000);
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
        QFile f(junk);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(4096, 'x'));
        f.close();
        QSignalSpy init(&player, &OVVideoDecoderBase::initFinished);
        QVERIFY(player.open(junk));
        QVERIFY(init.wait(20000) || init.count() == 1);
        QVERIFY(init.first().first().toInt() != 0);
        QVERIFY(!player.lastError().message().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 10000);
    }

    // A seek after the end starts the file again there.
    void seekAfterEnd()
    {
        OVVideoPlayer player;
        FramePuller puller(&player);
        QSignalSpy finished(&player, &OVVideoDecoderBase::videoFinished);
        QVERIFY(startQuiet(player, need(m_clip)));
        player.seek(5.0);
        QVERIFY(finished.wait(20000) || finished.count() == 1);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Stopped, 10000);
        player.seek(1.0, false);
        QTRY_COMPARE_WITH_TIMEOUT(player.state(), OVVideoPlayer::Paused, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(puller.last && puller.last->time >= 1.0 && puller.last->time < 1.2, 20000);
    }
};

QTEST_MAIN(TestOVVideoPlayer)
#include "tst_ovvideoplayer.moc"
