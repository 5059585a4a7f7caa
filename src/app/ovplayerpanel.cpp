#include "app/ovplayerpanel.h"

#include "app/ovapplogging.h"
#include "app/ovplayercanvas.h"
#include "app/ovplayercontrols.h"
#include "media/ovmediainfo.h"
#include "media/ovvideoplayer.h"
#include "project/state.h"
#include "widgets/ovspeedcontrol.h"
#include "widgets/ovvolumecontrol.h"
#include "widgets/ovvolumepopup.h"

#include <QDebug>
#include <QFutureWatcher>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>

OVPlayerPanel::OVPlayerPanel(QWidget *parent) : QWidget(parent)
{
    m_player = new OVVideoPlayer(this);
    m_canvas = new OVPlayerCanvas(this);
    m_controls = new OVPlayerControls(this);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_canvas, 1);
    layout->addWidget(m_controls);
    // A click on the picture puts the focus here, so that the keys scoped to the player (the
    // arrows) apply to it.
    m_canvas->setFocusPolicy(Qt::ClickFocus);

    m_canvas->setPlayer(m_player);
    m_controls->setPlayer(m_player);
    // The player's clock is the one source of the current position: its ticks go to the
    // project's state, which hands them on to every view, and to the time under the picture.
    m_player->setPublishingPosition(true);
    connect(m_player, &OVVideoPlayer::positionChanged, this, [this](double pos) {
        if (m_state)
            m_state->setCurrentPos(pos);
        m_controls->refresh();
    });
    connect(m_player, &OVVideoPlayer::seekPositionChanged, this, [this](double pos) {
        if (m_state)
            m_state->setSeekPos(pos);
    });
    connect(m_player, &OVVideoDecoderBase::initFinished, this, &OVPlayerPanel::onPlayerInitFinished);
    // Emitted on the decoding thread; queued, it arrives after everything the run did before.
    connect(m_player, &OVVideoDecoderBase::errorRaised, this, &OVPlayerPanel::onPlayerErrorRaised,
            Qt::QueuedConnection);
    // The time under the picture is the time of the picture, not of a clock read at another moment.
    connect(m_canvas, &OVPlayerCanvas::frameChanged, this, [this] {
        if (m_canvas->currentFrame() && m_player->hasVideoStream())
            m_controls->showFrameTime(m_canvas->currentFrame()->time / m_player->timeFactor());
    });
    connect(m_canvas, &OVPlayerCanvas::fileDropped, this, &OVPlayerPanel::fileDropped);
    connect(m_controls->volumeControl(), &OVVolumeControl::volumeChanged, this,
            [this] { Q_EMIT volumeChanged(volume()); });
}

OVPlayerPanel::~OVPlayerPanel()
{
    // The canvas and controls go first; the player's thread is stopped by its own destructor.
    m_canvas->setPlayer(nullptr);
    m_controls->setPlayer(nullptr);
}

bool OVPlayerPanel::openMedia(const QString &path, double startAt, bool paused, int audioStream)
{
    if (path.isEmpty())
        return false;
    const int generation = ++m_openGeneration;
    const Request request { path, startAt, paused, audioStream };
    auto *watcher = new QFutureWatcher<CheckResult>(this);
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, generation, request] {
        watcher->deleteLater();
        if (generation == m_openGeneration)
            onChecked(request, watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(&OVPlayerPanel::checkPlayable, path));
    return true;
}

OVPlayerPanel::CheckResult OVPlayerPanel::checkPlayable(const QString &path)
{
    CheckResult result;
    OVMediaInfo info;
    result.error = OVMediaInfo::probe(path, &info);
    if (result.error)
        return result;
    result.duration = info.duration;
    for (const OVMediaInfo::Stream &stream : std::as_const(info.streams)) {
        if (stream.type == QLatin1String("video") || stream.type == QLatin1String("audio"))
            return result;
    }
    result.error = OV::Error(OVVideoDecoderBase::NoStreamError, tr("The file holds no video or audio stream."));
    return result;
}

void OVPlayerPanel::onChecked(const Request &request, const CheckResult &result)
{
    if (result.error) {
        qCWarning(lcApp).noquote() << "OVPlayerPanel: cannot play" << request.path << ":" << result.error.message();
        Q_EMIT initFinished(result.error.code(), result.error.message(), request.path);
        return;
    }
    Request checked = request;
    // A remembered position past the end of a file that has changed since means nothing.
    if (result.duration > 0.0 && checked.startAt >= result.duration)
        checked.startAt = 0.0;
    m_fallback = Request();
    if (!m_player->path().isEmpty() && m_player->path() != checked.path) {
        const OVVideoPlayer::State state = m_player->state();
        m_fallback = { m_player->path(), m_player->position(),
                       state != OVVideoPlayer::Playing && state != OVVideoPlayer::Starting,
                       m_player->preferredAudioStream() };
    }
    start(checked);
}

void OVPlayerPanel::start(const Request &request)
{
    m_canvas->clear();
    m_controls->setDuration(0.0);
    m_awaitingInit = true;
    if (!m_player->open(request.path, request.audioStream)) {
        m_awaitingInit = false;
        const OV::Error error = m_player->openError();
        qCWarning(lcApp) << "OVPlayerPanel: cannot open" << request.path << error.message();
        Q_EMIT initFinished(error.code() ? error.code() : 1, error.message(), request.path);
        return;
    }
    m_settleAt = request.paused ? request.startAt : -1.0;
    if (request.startAt > 0.0 || request.paused)
        m_player->seek(request.startAt, !request.paused);
}

void OVPlayerPanel::closeMedia()
{
    ++m_openGeneration;
    m_settleAt = -1.0;
    m_fallback = Request();
    m_awaitingInit = false;
    m_player->close();
    m_canvas->clear();
    m_controls->setDuration(0.0);
    m_controls->refresh();
}

QString OVPlayerPanel::mediaPath() const
{
    return m_player->path();
}

double OVPlayerPanel::shownPosition() const
{
    return m_controls->shownPosition();
}

void OVPlayerPanel::setState(OVProject::State *state)
{
    m_state = state;
}

void OVPlayerPanel::onPlayerInitFinished(int code)
{
    // The player restarts by itself (a seek after the end, another audio stream): only the
    // start openMedia() asked for is news here; a restart that fails raises an error instead.
    // A start cut short by a newer one is no failure either.
    if (!m_awaitingInit || code == OVVideoDecoderBase::StoppedError)
        return;
    m_awaitingInit = false;
    const QString path = m_player->path();
    if (code != 0) {
        const OV::Error error = m_player->lastError();
        const Request fallback = m_fallback;
        m_fallback = Request();
        if (!fallback.path.isEmpty()) {
            qCInfo(lcApp).noquote() << "OVPlayerPanel: back to" << fallback.path << "at" << fallback.startAt;
            start(fallback);
        }
        Q_EMIT initFinished(code, error.message(), path);
        return;
    }
    m_fallback = Request();
    const double fps = m_player->frameRate();
    if (m_settleAt > 0.0 && fps > 0.0) {
        // A paused seek shows the second picture at or after its target: aim between the two
        // pictures before the one wanted, so that it is that one which comes up.
        m_player->seek(std::max(0.0, m_settleAt - 1.25 / fps), false);
    }
    m_settleAt = -1.0;
    const double length = m_player->duration();
    m_controls->setDuration(length);
    Q_EMIT initFinished(0, QString(), path);
    if (length > 0.0)
        Q_EMIT durationKnown(length);
}

void OVPlayerPanel::onPlayerErrorRaised()
{
    // Failures of a start that openMedia() asked for come with initFinished().
    if (m_awaitingInit)
        return;
    const OV::Error error = m_player->lastError();
    if (error.code() == OVVideoDecoderBase::StoppedError)
        return;
    qCWarning(lcApp).noquote() << "OVPlayerPanel: playback of" << m_player->path() << "failed:" << error.message();
    Q_EMIT playbackFailed(m_player->path(), error.message());
}

double OVPlayerPanel::volume() const
{
    return m_controls->volumeControl()->volume();
}

void OVPlayerPanel::setVolume(double volume)
{
    volume = std::clamp(volume, 0.0, OVVolumePopup::MaxVolume);
    m_controls->volumeControl()->setVolume(volume);
    m_player->setVolume(m_controls->volumeControl()->volume());
}

void OVPlayerPanel::togglePlayback()
{
    m_controls->togglePlayback();
}

void OVPlayerPanel::seekForward()
{
    onSeekRequested(m_player->position() + SeekStepSeconds);
}

void OVPlayerPanel::seekBackward()
{
    onSeekRequested(std::max(0.0, m_player->position() - SeekStepSeconds));
}

void OVPlayerPanel::stepOrSeekForward()
{
    if (m_controls->isPausedForUser())
        m_controls->stepForward();
    else
        seekForward();
}

void OVPlayerPanel::stepOrSeekBackward()
{
    if (m_controls->isPausedForUser())
        m_controls->stepBackward();
    else
        seekBackward();
}

void OVPlayerPanel::speedUp()
{
    OVSpeedControl *speed = m_controls->speedControl();
    speed->setSpeed(speed->speed() * SpeedUpFactor);
}

void OVPlayerPanel::speedDown()
{
    OVSpeedControl *speed = m_controls->speedControl();
    speed->setSpeed(speed->speed() * SpeedDownFactor);
}

void OVPlayerPanel::volumeUp()
{
    setVolume(volume() + VolumeStep);
}

void OVPlayerPanel::volumeDown()
{
    setVolume(volume() - VolumeStep);
}

void OVPlayerPanel::onSeekRequested(double secsFromStart)
{
    if (!m_player->source())
        return;
    const double length = m_player->duration();
    if (length > 0.0)
        secsFromStart = std::min(secsFromStart, length);
    // A paused player stays paused on the new picture.
    m_controls->seekKeepingPause(secsFromStart);
    m_controls->refresh();
}
