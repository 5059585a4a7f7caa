#include "app/ovplayercontrols.h"

#include "log/ovtimeformat.h"
#include "media/ovvideoplayer.h"
#include "widgets/ovspeedcontrol.h"
#include "widgets/ovvolumecontrol.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QProxyStyle>
#include <QSlider>
#include <QStyle>
#include <QToolButton>

#include <algorithm>
#include <cmath>

namespace {

// A click on the seek bar puts the handle where the click is (and starts a drag from there), as
// in every media player; the platform's styles would only page towards the pointer.
class OVSeekBarStyle : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;
    int styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                  QStyleHintReturn *returnData) const override
    {
        if (hint == QStyle::SH_Slider_AbsoluteSetButtons)
            return int(Qt::LeftButton | Qt::MiddleButton);
        if (hint == QStyle::SH_Slider_PageSetButtons)
            return int(Qt::NoButton);
        return QProxyStyle::styleHint(hint, option, widget, returnData);
    }
};

} // namespace

OVPlayerControls::OVPlayerControls(QWidget *parent) : QWidget(parent)
{
    m_play = new QToolButton(this);
    m_play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    m_play->setToolTip(tr("Play / pause"));
    m_stepBack = new QToolButton(this);
    m_stepBack->setIcon(style()->standardIcon(QStyle::SP_MediaSeekBackward));
    m_stepBack->setToolTip(tr("One frame back"));
    m_stepForward = new QToolButton(this);
    m_stepForward->setIcon(style()->standardIcon(QStyle::SP_MediaSeekForward));
    m_stepForward->setToolTip(tr("One frame forward"));
    m_positionLabel = new QLabel(OVTimeFormat::format(0.0), this);
    m_durationLabel = new QLabel(OVTimeFormat::format(0.0), this);
    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setRange(0, 0);
    m_slider->setTracking(true);
    auto *seekBarStyle = new OVSeekBarStyle;
    seekBarStyle->setParent(m_slider);
    m_slider->setStyle(seekBarStyle);
    m_speed = new OVSpeedControl(this);
    m_volume = new OVVolumeControl(this);

    // The controls sit on the black of the player; give them a dark bar of their own so the
    // times are readable.
    setAutoFillBackground(true);
    QPalette bar = palette();
    bar.setColor(QPalette::Window, QColor(40, 40, 40));
    bar.setColor(QPalette::WindowText, QColor(225, 225, 225));
    setPalette(bar);
    m_positionLabel->setObjectName(QStringLiteral("lb_position"));
    m_durationLabel->setObjectName(QStringLiteral("lb_duration"));

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    layout->addWidget(m_play);
    layout->addWidget(m_stepBack);
    layout->addWidget(m_stepForward);
    layout->addWidget(m_positionLabel);
    layout->addWidget(m_slider, 1);
    layout->addWidget(m_durationLabel);
    layout->addWidget(m_speed);
    layout->addWidget(m_volume);

    connect(m_play, &QToolButton::clicked, this, &OVPlayerControls::togglePlayback);
    connect(m_stepBack, &QToolButton::clicked, this, &OVPlayerControls::stepBackward);
    connect(m_stepForward, &QToolButton::clicked, this, &OVPlayerControls::stepForward);
    connect(m_slider, &QSlider::sliderPressed, this, &OVPlayerControls::onSliderPressed);
    connect(m_slider, &QSlider::sliderMoved, this, &OVPlayerControls::onSliderMoved);
    connect(m_slider, &QSlider::sliderReleased, this, &OVPlayerControls::onSliderReleased);
    // Clicks on the groove and keys move the slider without a drag.
    connect(m_slider, &QSlider::actionTriggered, this, [this](int action) {
        if (action != QAbstractSlider::SliderMove && !m_dragging)
            QMetaObject::invokeMethod(this, [this] { onSliderMoved(m_slider->value()); }, Qt::QueuedConnection);
    });
    connect(m_speed, &OVSpeedControl::speedChanged, this, &OVPlayerControls::onSpeedChanged);
    connect(m_volume, &OVVolumeControl::volumeChanged, this, &OVPlayerControls::onVolumeChanged);

    updateButtons();
}

void OVPlayerControls::setPlayer(OVVideoPlayer *player)
{
    if (m_player)
        disconnect(m_player, nullptr, this, nullptr);
    m_player = player;
    if (player) {
        connect(player, &OVVideoPlayer::stateChanged, this, &OVPlayerControls::refresh);
        player->setVolume(m_volume->volume());
        player->setMuted(m_volume->isMuted());
        player->setTimeFactor(1.0 / m_speed->speed());
    }
    refresh();
}

void OVPlayerControls::setDuration(double seconds)
{
    if (!(seconds > 0.0) || !std::isfinite(seconds))
        seconds = 0.0;
    m_duration = seconds;
    // A new file (or none): the picture of the old one is gone.
    m_frameTime = -1.0;
    m_durationLabel->setText(OVTimeFormat::format(seconds));
    m_slider->setRange(0, int(std::lround(seconds * SliderUnitsPerSecond)));
    refresh();
}

double OVPlayerControls::frameDuration() const
{
    const double fps = m_player ? m_player->frameRate() : 0.0;
    return fps > 0.0 ? 1.0 / fps : 0.04;
}

void OVPlayerControls::togglePlayback()
{
    if (!m_player)
        return;
    if (m_pausedSeekPicture >= 0.0) {
        // Still on its way to a paused picture: the same seek, but playing on from there.
        m_pausedSeekPicture = -1.0;
        m_player->seek(m_player->position(), true);
    } else if (m_player->state() == OVVideoPlayer::Playing) {
        m_player->pause();
    } else {
        m_player->resume();
    }
    refresh();
}

bool OVPlayerControls::isPausedForUser() const
{
    return m_player && (m_player->state() == OVVideoPlayer::Paused || m_pausedSeekPicture >= 0.0);
}

void OVPlayerControls::seekKeepingPause(double seconds)
{
    if (!m_player)
        return;
    seconds = std::max(0.0, seconds);
    if (isPausedForUser())
        seekPaused(seconds, seconds);
    else
        m_player->seek(seconds, true);
}

double OVPlayerControls::shownPosition() const
{
    if (!m_player)
        return 0.0;
    if (m_pausedSeekPicture >= 0.0)
        return m_pausedSeekPicture;
    return m_frameTime >= 0.0 && m_player->hasVideoStream() ? m_frameTime : m_player->position();
}

void OVPlayerControls::seekPaused(double seconds, double expectedPicture)
{
    m_player->seek(seconds, false);
    m_pausedSeekPicture = expectedPicture;
    updateButtons();
}

// A seek that stays paused shows the second picture at or after its target (see
// OVVideoPlayer::seek): aiming a quarter frame before a picture therefore shows the one after it.
void OVPlayerControls::stepForward()
{
    if (!isPausedForUser())
        return;
    const double d = frameDuration();
    const double here = m_pausedSeekPicture >= 0.0 ? m_pausedSeekPicture : shownTime();
    seekPaused(std::max(0.0, here - d / 4), here + d);
}

double OVPlayerControls::shownTime() const
{
    const double shown = m_player->lastShownTime();
    return shown >= 0.0 ? shown : m_player->position();
}

void OVPlayerControls::stepBackward()
{
    if (!isPausedForUser())
        return;
    const double d = frameDuration();
    const double here = m_pausedSeekPicture >= 0.0 ? m_pausedSeekPicture : shownTime();
    if (here < d / 2)
        return;
    seekPaused(std::max(0.0, here - 2.25 * d), here - d);
}

void OVPlayerControls::onSliderPressed()
{
    m_dragging = true;
    m_lastDragValue = -1;
    m_playAfterDrag = m_player && m_player->state() == OVVideoPlayer::Playing && !isPausedForUser();
}

void OVPlayerControls::onSliderMoved(int value)
{
    if (value == m_lastDragValue && m_dragging)
        return;
    m_lastDragValue = value;
    const double seconds = double(value) / SliderUnitsPerSecond;
    m_positionLabel->setText(OVTimeFormat::format(seconds));
    // While dragging, the picture follows the handle without running off.
    if (m_player) {
        if (m_dragging)
            seekPaused(seconds, seconds);
        else
            seekKeepingPause(seconds);
    }
    Q_EMIT seekRequested(seconds);
}

void OVPlayerControls::onSliderReleased()
{
    m_dragging = false;
    const double seconds = double(m_slider->value()) / SliderUnitsPerSecond;
    if (m_player && m_playAfterDrag) {
        m_pausedSeekPicture = -1.0;
        m_player->seek(seconds, true);
    } else if (m_player) {
        seekPaused(seconds, seconds);
    }
    m_playAfterDrag = false;
    refresh();
}

void OVPlayerControls::onSpeedChanged(double speed)
{
    if (m_player && speed > 0.0)
        m_player->setTimeFactor(1.0 / speed);
}

void OVPlayerControls::onVolumeChanged()
{
    if (!m_player)
        return;
    m_player->setVolume(m_volume->volume());
    m_player->setMuted(m_volume->isMuted());
}

void OVPlayerControls::updateButtons()
{
    const OVVideoPlayer::State state = m_player ? m_player->state() : OVVideoPlayer::Stopped;
    const bool playing = state == OVVideoPlayer::Playing || state == OVVideoPlayer::Starting;
    m_play->setIcon(style()->standardIcon(playing ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    m_play->setEnabled(m_player && m_player->source());
    const bool paused = isPausedForUser();
    m_stepBack->setEnabled(paused);
    m_stepForward->setEnabled(paused);
    m_slider->setEnabled(m_player && m_player->source() && m_duration > 0.0);
}

void OVPlayerControls::refresh()
{
    if (m_pausedSeekPicture >= 0.0
        && (!m_player || m_player->state() == OVVideoPlayer::Paused || m_player->state() == OVVideoPlayer::Stopped))
        m_pausedSeekPicture = -1.0;
    updateButtons();
    if (!m_player || m_dragging)
        return;
    // A stopped player keeps showing where it ended.
    if (m_player->state() == OVVideoPlayer::Stopped)
        return;
    showPosition(m_frameTime >= 0.0 && m_player->hasVideoStream() ? m_frameTime : m_player->position());
}

void OVPlayerControls::showFrameTime(double seconds)
{
    if (!std::isfinite(seconds))
        return;
    m_frameTime = std::max(0.0, seconds);
    if (!m_dragging)
        showPosition(m_frameTime);
}

void OVPlayerControls::showPosition(double seconds)
{
    m_positionLabel->setText(OVTimeFormat::format(seconds));
    const QSignalBlocker block(m_slider);
    m_slider->setValue(int(std::lround(seconds * SliderUnitsPerSecond)));
}
