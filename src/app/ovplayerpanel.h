#pragma once

#include <QPointer>
#include <QWidget>

class OVPlayerCanvas;
class OVPlayerControls;
class OVVideoPlayer;

namespace OVProject {
class State;
}

// The player's part of the main window: the picture above the seek bar and buttons. It owns
// the player. The main window opens media through it, forwards the views' seek requests and
// the keyboard actions to its slots, and keeps the volume in its settings through
// setVolume() / volumeChanged().
class OVPlayerPanel : public QWidget
{
    Q_OBJECT

public:
    // How far seekForward() and seekBackward() jump.
    static constexpr double SeekStepSeconds = 5.0;
    // speedUp() and speedDown() multiply the speed by these (the speed control snaps and clamps).
    static constexpr double SpeedUpFactor = 1.1;
    static constexpr double SpeedDownFactor = 0.9;
    static constexpr double VolumeStep = 0.1;

    explicit OVPlayerPanel(QWidget *parent = nullptr);
    ~OVPlayerPanel() override;

    // Starts playing `path`. The outcome comes with initFinished(); when the file cannot be
    // read at all this returns false and initFinished() has been emitted already.
    bool openMedia(const QString &path);
    void closeMedia();
    QString mediaPath() const;
    // The project's state receives the position while media plays.
    void setState(OVProject::State *state);

    OVVideoPlayer *player() const { return m_player; }
    OVPlayerCanvas *canvas() const { return m_canvas; }
    OVPlayerControls *controls() const { return m_controls; }

    double volume() const;
    void setVolume(double volume);

public Q_SLOTS:
    void togglePlayback();
    void seekForward();
    void seekBackward();
    void speedUp();
    void speedDown();
    void volumeUp();
    void volumeDown();
    void onSeekRequested(double secsFromStart);

Q_SIGNALS:
    // 0 and an empty message on success; otherwise the message is for the user.
    void initFinished(int code, const QString &message);
    // The length of the opened media in seconds, once it is known.
    void durationKnown(double seconds);
    void fileDropped(const QString &path);
    void volumeChanged(double volume);

private:
    void onPlayerInitFinished(int code);

    OVVideoPlayer *m_player = nullptr;
    OVPlayerCanvas *m_canvas = nullptr;
    OVPlayerControls *m_controls = nullptr;
    bool m_awaitingInit = false;
    QPointer<OVProject::State> m_state;
};
