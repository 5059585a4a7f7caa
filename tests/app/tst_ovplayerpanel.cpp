#include "app/ovplayercanvas.h"
#include "app/ovplayercontrols.h"
#include "app/ovplayerpanel.h"
#include "log/ovtimeformat.h"
#include "media/ovvideoplayer.h"
#include "project/state.h"
#include "widgets/ovspeedcontrol.h"
#include "widgets/ovvolumecontrol.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QElapsedTimer>
#include <QLabel>
#include <QMimeData>
#include <QPainter>
#include <QProcess>
#include <QSignalSpy>
#include <QSlider>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QUrl>

#include <cmath>

namespace {

QString makeClip(const QString &dir, const QString &name, const QString &video)
{
    const QString out = QDir(dir).filePath(name);
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("ffmpeg"),
            {QStringLiteral("-y"), QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
             QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"), video, QStringLiteral("-c:v"),
             QStringLiteral("libx264"), QStringLiteral("-preset"), QStringLiteral("ultrafast"), QStringLiteral("-g"),
             QStringLiteral("25"), QStringLiteral("-pix_fmt"), QStringLiteral("yuv420p"), out});
    if (!p.waitForFinished(120000) || p.exitCode() != 0) {
        qWarning() << p.readAll();
        return QString();
    }
    return out;
}

// Counts the timer events delivered on the GUI thread, by the receiver's class.
class TimerEventCounter : public QObject
{
public:
    QStringList receivers;
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Timer)
            receivers << QString::fromLatin1(watched->metaObject()->className());
        return false;
    }
};

} // namespace

class TestOVPlayerPanel : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_clip;

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("KAVOT_NO_AUDIO_OUTPUT", "1");
        if (QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty())
            QSKIP("the ffmpeg tool is not installed");
        m_clip = makeClip(m_dir.path(), QStringLiteral("clip.mp4"), QStringLiteral("testsrc=size=320x240:rate=25:duration=6"));
        QVERIFY(!m_clip.isEmpty());
    }

    void fittedRect_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<double>("pixelAspect");
        QTest::addColumn<int>("rotation");
        QTest::addColumn<QRectF>("area");
        QTest::addColumn<QRectF>("expected");
        QTest::newRow("wide area: bars left and right") << QSize(640, 360) << 1.0 << 0 << QRectF(0, 0, 1280, 360)
                                                       << QRectF(320, 0, 640, 360);
        QTest::newRow("tall area: bars above and below") << QSize(640, 360) << 1.0 << 0 << QRectF(0, 0, 640, 720)
                                                         << QRectF(0, 180, 640, 360);
        QTest::newRow("pixel aspect widens") << QSize(720, 576) << 16.0 / 15.0 << 0 << QRectF(0, 0, 768, 576)
                                             << QRectF(0, 0, 768, 576);
        QTest::newRow("quarter turn swaps the shape") << QSize(640, 360) << 1.0 << 90 << QRectF(0, 0, 360, 640)
                                                      << QRectF(-140, 140, 640, 360);
        QTest::newRow("minus a quarter turn too") << QSize(640, 360) << 1.0 << -90 << QRectF(0, 0, 360, 640)
                                                  << QRectF(-140, 140, 640, 360);
        QTest::newRow("half turn keeps the shape") << QSize(640, 360) << 1.0 << 180 << QRectF(10, 10, 640, 360)
                                                   << QRectF(10, 10, 640, 360);
        QTest::newRow("no picture") << QSize(0, 0) << 1.0 << 0 << QRectF(0, 0, 100, 100) << QRectF();
        QTest::newRow("bad pixel aspect counts as square") << QSize(100, 100) << 0.0 << 0 << QRectF(0, 0, 200, 100)
                                                           << QRectF(50, 0, 100, 100);
    }
    void fittedRect()
    {
        QFETCH(QSize, size);
        QFETCH(double, pixelAspect);
        QFETCH(int, rotation);
        QFETCH(QRectF, area);
        QFETCH(QRectF, expected);
        const QRectF r = OVPlayerCanvas::fittedRect(size, pixelAspect, rotation, area);
        QVERIFY2(std::abs(r.x() - expected.x()) < 1e-6 && std::abs(r.y() - expected.y()) < 1e-6
                     && std::abs(r.width() - expected.width()) < 1e-6 && std::abs(r.height() - expected.height()) < 1e-6,
                 qPrintable(QStringLiteral("%1 %2 %3 %4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height())));
    }

    // A quarter-turned picture lands upright: its top row ends up on the canvas's right side.
    void paintRotated()
    {
        QImage picture(40, 20, QImage::Format_RGB888);
        picture.fill(Qt::blue);
        for (int x = 0; x < 40; ++x)
            picture.setPixelColor(x, 0, Qt::red);
        OVPlaybackQueues::VideoFrame frame;
        frame.image = picture;
        frame.width = 40;
        frame.height = 20;
        frame.stride = int(picture.bytesPerLine());
        frame.rotation = -90; // clockwise
        QImage canvas(100, 200, QImage::Format_RGB32);
        QPainter p(&canvas);
        OVPlayerCanvas::paintFrame(p, canvas.rect(), &frame);
        p.end();
        // The picture is 100 × 200 after the turn; black nowhere, red along the right edge.
        QCOMPARE(canvas.pixelColor(50, 100), QColor(Qt::blue));
        QCOMPARE(canvas.pixelColor(98, 100).red() > 200, true);
        QCOMPARE(canvas.pixelColor(1, 100), QColor(Qt::blue));
    }

    void openPlaySeekAndLabels()
    {
        OVPlayerPanel panel;
        panel.resize(640, 480);
        panel.show();
        OVProject::State state;
        panel.setState(&state);
        QSignalSpy init(&panel, &OVPlayerPanel::initFinished);
        QSignalSpy duration(&panel, &OVPlayerPanel::durationKnown);
        QVERIFY(panel.openMedia(m_clip));
        QTRY_COMPARE_WITH_TIMEOUT(init.count(), 1, 20000);
        QCOMPARE(init.first().at(0).toInt(), 0);
        QCOMPARE(duration.count(), 1);
        QVERIFY(std::abs(duration.first().first().toDouble() - 6.0) < 0.1);
        OVPlayerControls *controls = panel.controls();
        QCOMPARE(controls->durationLabel()->text(), OVTimeFormat::format(panel.player()->duration()));
        QTRY_VERIFY_WITH_TIMEOUT(panel.canvas()->framesTaken() > 5, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(state.currentPos() > 0.3, 20000);

        // Dragging the slider seeks while the handle moves and leaves the player paused there.
        QSlider *slider = controls->slider();
        slider->setSliderDown(true);
        slider->setSliderPosition(2500);
        QTRY_COMPARE_WITH_TIMEOUT(panel.player()->state(), OVVideoPlayer::Paused, 20000);
        slider->setSliderPosition(4000);
        QTRY_VERIFY_WITH_TIMEOUT(panel.canvas()->currentFrame() && panel.canvas()->currentFrame()->time >= 4.0, 20000);
        slider->setSliderDown(false);
        // It was playing before the drag: it plays on from the handle.
        QTRY_COMPARE_WITH_TIMEOUT(panel.player()->state(), OVVideoPlayer::Playing, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(panel.player()->position() > 4.0, 20000);
        panel.togglePlayback();
        QCOMPARE(panel.player()->state(), OVVideoPlayer::Paused);
        const double pausedAt = panel.player()->position();
        QVERIFY(pausedAt >= 4.0 && pausedAt < 6.0);
        // Under the picture: the time of the picture, the one due when playback paused.
        QTRY_VERIFY_WITH_TIMEOUT(std::abs(panel.canvas()->currentFrame()->time - pausedAt) <= 0.04 + 1e-6, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(controls->positionLabel()->text(),
                                  OVTimeFormat::format(panel.canvas()->currentFrame()->time), 5000);
        QCOMPARE(slider->value(), int(std::lround(panel.canvas()->currentFrame()->time * 1000)));
        QTRY_COMPARE_WITH_TIMEOUT(state.currentPos(), pausedAt, 5000);

        // One frame forward and back while paused.
        QVERIFY(controls->stepForwardButton()->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(panel.canvas()->currentFrame(), 5000);
        const double shown = panel.canvas()->currentFrame()->time;
        controls->stepForward();
        QTRY_VERIFY_WITH_TIMEOUT(panel.player()->state() == OVVideoPlayer::Paused
                                     && std::abs(panel.canvas()->currentFrame()->time - (shown + 0.04)) < 1e-3,
                                 20000);
        controls->stepBackward();
        QTRY_VERIFY_WITH_TIMEOUT(panel.player()->state() == OVVideoPlayer::Paused
                                     && std::abs(panel.canvas()->currentFrame()->time - shown) < 1e-3,
                                 20000);
        QTRY_COMPARE_WITH_TIMEOUT(controls->positionLabel()->text(), OVTimeFormat::format(shown), 5000);

        // Paused, nothing ticks: no timer fires, no position is announced, no picture is taken.
        {
            QTest::qWait(100); // what the step queued has run
            TimerEventCounter timers;
            qApp->installEventFilter(&timers);
            QSignalSpy ticks(panel.player(), &OVVideoPlayer::positionChanged);
            QSignalSpy statePos(&state, &OVProject::State::currentPosChanged);
            const quint64 taken = panel.canvas()->framesTaken();
            QTest::qWait(600);
            qApp->removeEventFilter(&timers);
            QVERIFY2(timers.receivers.isEmpty(), qPrintable(timers.receivers.join(QLatin1Char(' '))));
            QCOMPARE(ticks.count(), 0);
            QCOMPARE(statePos.count(), 0);
            QCOMPARE(panel.canvas()->framesTaken(), taken);
        }

        // Seek requests from the views keep the pause; the labels follow.
        panel.onSeekRequested(1.5);
        QTRY_VERIFY_WITH_TIMEOUT(panel.player()->state() == OVVideoPlayer::Paused
                                     && std::abs(panel.player()->position() - 1.5) < 0.1,
                                 20000);
        QTRY_COMPARE_WITH_TIMEOUT(controls->positionLabel()->text(), OVTimeFormat::format(panel.player()->position()),
                                  5000);
        panel.seekForward();
        QTRY_VERIFY_WITH_TIMEOUT(std::abs(panel.player()->position() - 6.0) < 0.5, 20000);

        panel.closeMedia();
        QCOMPARE(panel.player()->state(), OVVideoPlayer::Stopped);
        QVERIFY(!panel.canvas()->currentFrame());
    }

    void speedVolumeAndErrors()
    {
        OVPlayerPanel panel;
        QSignalSpy volume(&panel, &OVPlayerPanel::volumeChanged);
        panel.setVolume(0.5);
        QCOMPARE(panel.player()->volume(), 0.5);
        panel.volumeUp();
        QVERIFY(std::abs(panel.volume() - 0.6) < 1e-9);
        QVERIFY(std::abs(panel.player()->volume() - 0.6) < 1e-9);
        QVERIFY(volume.count() >= 2);
        QVERIFY(std::abs(volume.last().first().toDouble() - 0.6) < 1e-9);

        panel.speedDown(); // 0.9 is not strictly inside the snapping band
        QCOMPARE(panel.controls()->speedControl()->speed(), 0.9);
        panel.speedUp(); // 0.99 snaps to 1.0
        QCOMPARE(panel.controls()->speedControl()->speed(), 1.0);
        for (int i = 0; i < 10; ++i)
            panel.speedUp();
        QCOMPARE(panel.controls()->speedControl()->speed(), 2.0);
        QCOMPARE(panel.player()->requestedTimeFactor(), 0.5);

        QSignalSpy init(&panel, &OVPlayerPanel::initFinished);
        const QString missing = m_dir.filePath(QStringLiteral("nothing-here.mp4"));
        QVERIFY(panel.openMedia(missing));
        QTRY_COMPARE_WITH_TIMEOUT(init.count(), 1, 20000);
        QVERIFY(init.first().at(0).toInt() != 0);
        QVERIFY(!init.first().at(1).toString().isEmpty());
        QCOMPARE(init.first().at(2).toString(), missing);
    }

    void seekBarClickAndTimeUnderThePicture()
    {
        OVPlayerPanel panel;
        panel.resize(640, 480);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QSignalSpy init(&panel, &OVPlayerPanel::initFinished);
        QVERIFY(panel.openMedia(m_clip));
        QTRY_COMPARE_WITH_TIMEOUT(init.count(), 1, 20000);
        QCOMPARE(init.first().at(0).toInt(), 0);
        OVVideoPlayer *player = panel.player();
        OVPlayerControls *controls = panel.controls();

        // At twice the speed the picture changes every 20 ms: a clock read on the refresh timer
        // runs several pictures away from the one on screen.
        controls->speedControl()->setSpeed(2.0);
        QTRY_VERIFY_WITH_TIMEOUT(player->timeFactor() == 0.5 && player->state() == OVVideoPlayer::Playing, 20000);
        QTest::qWait(300);
        double worst = 0.0;
        int samples = 0;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 1500 && player->state() == OVVideoPlayer::Playing) {
            QTest::qWait(7);
            const auto frame = panel.canvas()->currentFrame();
            double shown = 0.0;
            if (!frame || !OVTimeFormat::parse(controls->positionLabel()->text(), &shown))
                continue;
            worst = std::max(worst, std::abs(shown - frame->time / player->timeFactor()));
            ++samples;
        }
        QVERIFY2(samples > 50, qPrintable(QString::number(samples)));
        QVERIFY2(worst <= 0.04 + 1e-3, qPrintable(QStringLiteral("%1 s between label and picture").arg(worst)));

        // A click on the seek bar goes to the time clicked, not a page towards it.
        controls->speedControl()->setSpeed(1.0);
        QTRY_VERIFY_WITH_TIMEOUT(player->timeFactor() == 1.0 && player->state() == OVVideoPlayer::Playing, 20000);
        panel.togglePlayback();
        QTRY_COMPARE_WITH_TIMEOUT(player->state(), OVVideoPlayer::Paused, 5000);
        QSlider *slider = controls->slider();
        const double target = 0.25 * player->duration();
        QTest::mouseClick(slider, Qt::LeftButton, {}, QPoint(slider->width() / 4, slider->height() / 2));
        QTRY_VERIFY_WITH_TIMEOUT(player->state() == OVVideoPlayer::Paused && std::abs(player->position() - target) < 0.3,
                                 20000);
    }

    // The decoder's report of an error that ends playback reaches the window, once, with the
    // file; one during start-up is the start's failure and is told by initFinished() instead.
    void decoderErrorsDuringPlayback()
    {
        OVPlayerPanel panel;
        QSignalSpy init(&panel, &OVPlayerPanel::initFinished);
        QSignalSpy failed(&panel, &OVPlayerPanel::playbackFailed);
        QVERIFY(panel.openMedia(m_clip));
        QTRY_COMPARE_WITH_TIMEOUT(init.count(), 1, 20000);
        // As the decoding thread reports it.
        QMetaObject::invokeMethod(panel.player(), &OVVideoDecoderBase::errorRaised, Qt::QueuedConnection);
        QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 1, 5000);
        QCOMPARE(failed.first().first().toString(), m_clip);

        // A second file, so that only a start of it counts: a restart of the first one would be
        // a failure during playback. Raised before that start's initFinished() is handled.
        const QString second = QFileInfo(m_clip).absolutePath() + QStringLiteral("/second.mp4");
        QFile::remove(second);
        QVERIFY(QFile::copy(m_clip, second));
        bool raised = false;
        connect(panel.player(), &OVVideoPlayer::stateChanged, this, [&] {
            if (!raised && init.count() == 1 && panel.player()->path() == second
                && panel.player()->state() == OVVideoPlayer::Starting) {
                raised = true;
                Q_EMIT panel.player()->errorRaised();
            }
        });
        QVERIFY(panel.openMedia(second));
        QTRY_COMPARE_WITH_TIMEOUT(init.count(), 2, 20000);
        QVERIFY(raised);
        QTest::qWait(100);
        QCOMPARE(failed.count(), 1);
    }

    void dropOnCanvas()
    {
        OVPlayerPanel panel;
        panel.resize(320, 240);
        panel.show();
        QVERIFY(QTest::qWaitForWindowExposed(&panel));
        QSignalSpy dropped(&panel, &OVPlayerPanel::fileDropped);
        QMimeData mime;
        mime.setUrls({QUrl::fromLocalFile(m_clip)});
        QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(panel.canvas(), &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(panel.canvas(), &drop);
        QCOMPARE(dropped.count(), 1);
        QCOMPARE(dropped.first().first().toString(), m_clip);
    }
};

QTEST_MAIN(TestOVPlayerPanel)
#include "tst_ovplayerpanel.moc"
