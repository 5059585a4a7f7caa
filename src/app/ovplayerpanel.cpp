#include "app/ovplayerpanel.h"

#include "project/state.h"

#include "app/ovplayercanvas.h"
#include "app/ovplayercontrols.h"
#include "media/ovvideoplayer.h"
#include "widgets/ovspeedcontrol.h"
#include "widgets/ovvolumecontrol.h"
#include "widgets/ovvolumepopup.h"

#include <QDebug>
#include <QVBoxLayout>

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

    m_canvas->setPlayer(m_player);
    m_controls->setPlayer(m_player);
    connect(m_player, &OVVideoDecoderBase::initFinished, this, &OVPlayerPanel::onPlayerInitFinished);
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

bool OVPlayerPanel::openMedia(const QString &path)
{
    m_canvas->clear();
    m_controls->setDuration(0.0);
    m_awaitingInit = true;
    if (!m_player->open(path)) {
        m_awaitingInit = false;
        const OV::Error error = m_player->openError();
        qWarning() << "OVPlayerPanel: cannot open" << path << error.message();
        Q_EMIT initFinished(error.code() ? error.code() : 1, error.message());
        return false;
    }
    return true;
}

void OVPlayerPanel::closeMedia()
{
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

void OVPlayerPanel::setState(OVProject::State *state)
{
    disconnect(m_player, &OVVideoPlayer::positionChanged, this, nullptr);
    disconnect(m_player, &OVVideoPlayer::seekPositionChanged, this, nullptr);
    m_state = state;
    m_player->setPublishingPosition(state != nullptr);
    if (!state)
        return;
    // The player's clock is the one source of the current position; the state hands it on to
    // every view.
    connect(m_player, &OVVideoPlayer::positionChanged, this, [this](double pos) {
        if (m_state)
            m_state->setCurrentPos(pos);
    });
    connect(m_player, &OVVideoPlayer::seekPositionChanged, this, [this](double pos) {
        if (m_state)
            m_state->setSeekPos(pos);
    });
}

void OVPlayerPanel::onPlayerInitFinished(int code)
{
    // The player restarts by itself (a seek after the end, another audio stream); only the
    // first start of a file, or a failure, is news for the main window.
    if (code == 0 && !m_awaitingInit)
        return;
    m_awaitingInit = false;
    if (code != 0) {
        const OV::Error error = m_player->lastError();
        Q_EMIT initFinished(code, error.message());
        return;
    }
    const double length = m_player->duration();
    m_controls->setDuration(length);
    Q_EMIT initFinished(0, QString());
    if (length > 0.0)
        Q_EMIT durationKnown(length);
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
    m_player->seek(std::max(0.0, secsFromStart), m_player->state() != OVVideoPlayer::Paused);
    m_controls->refresh();
}
