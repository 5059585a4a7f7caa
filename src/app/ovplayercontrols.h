#pragma once

#include <QPointer>
#include <QWidget>

class OVSpeedControl;
#include "media/ovvideoplayer.h"
class OVVolumeControl;
class QLabel;
class QSlider;
class QToolButton;

// The seek bar and buttons under the picture: play/pause, one frame back and forward (while
// paused), the position and the duration, a slider that seeks while it is dragged, and the
// speed and volume controls. It drives the player directly; it polls nothing: the time shown
// follows the pictures put on screen, and without pictures the position ticks the player
// announces while it plays (see OVPlayerPanel), so a paused player leaves it idle.
class OVPlayerControls : public QWidget
{
    Q_OBJECT

public:
    // The slider counts milliseconds.
    static constexpr int SliderUnitsPerSecond = 1000;

    explicit OVPlayerControls(QWidget *parent = nullptr);

    void setPlayer(OVVideoPlayer *player);
    // Paused, or running on to the picture of a seek that is to stay paused (a step, a click
    // while paused): what the user sees as paused. The player itself reports playing meanwhile.
    bool isPausedForUser() const;
    // Goes to `seconds`, staying paused there when paused for the user, else playing on.
    void seekKeepingPause(double seconds);
    // The time of the picture on screen, or of the one a paused seek is on its way to; the
    // player's position without pictures.
    double shownPosition() const;
    void setDuration(double seconds);
    double duration() const { return m_duration; }

    QToolButton *playButton() const { return m_play; }
    QToolButton *stepBackButton() const { return m_stepBack; }
    QToolButton *stepForwardButton() const { return m_stepForward; }
    QSlider *slider() const { return m_slider; }
    QLabel *positionLabel() const { return m_positionLabel; }
    QLabel *durationLabel() const { return m_durationLabel; }
    OVSpeedControl *speedControl() const { return m_speed; }
    OVVolumeControl *volumeControl() const { return m_volume; }

public Q_SLOTS:
    void togglePlayback();
    void stepForward();
    void stepBackward();
    // Shows the player's position and state now; called on each of the player's position ticks
    // and state changes.
    void refresh();
    // The picture of `seconds` has just been put on screen: the position shown follows it.
    void showFrameTime(double seconds);

Q_SIGNALS:
    // The user moved the slider to this position (seconds).
    void seekRequested(double seconds);

private:
    void onSliderPressed();
    void onSliderMoved(int value);
    void onSliderReleased();
    void onSpeedChanged(double speed);
    void onVolumeChanged();
    void updateButtons();
    void showPosition(double seconds);
    double frameDuration() const;
    void seekPaused(double seconds, double expectedPicture);
    // The time of the picture on screen, which frame steps count from.
    double shownTime() const;

    QPointer<OVVideoPlayer> m_player;
    QToolButton *m_play = nullptr;
    QToolButton *m_stepBack = nullptr;
    QToolButton *m_stepForward = nullptr;
    QSlider *m_slider = nullptr;
    QLabel *m_positionLabel = nullptr;
    QLabel *m_durationLabel = nullptr;
    OVSpeedControl *m_speed = nullptr;
    OVVolumeControl *m_volume = nullptr;
    double m_duration = 0.0;
    // The time of the picture on screen; -1 until one is shown (and for sound only).
    double m_frameTime = -1.0;
    // The picture a seek that is to stay paused aims at, until the player has paused there; -1
    // when none. Steps in quick succession count on from it rather than from the old picture.
    double m_pausedSeekPicture = -1.0;
    bool m_dragging = false;
    bool m_playAfterDrag = false;
    int m_lastDragValue = -1;
};
