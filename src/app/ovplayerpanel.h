#pragma once

#include "log/overror.h"

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
//
// A file to open is first checked on a worker thread; what plays goes on playing until the new
// file is known to open, and comes back where it was if the player then cannot start the new one.
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

    // Starts playing `path` from `startAt` seconds, staying paused there when `paused`. The
    // outcome comes with initFinished(). False only for an empty path.
    bool openMedia(const QString &path, double startAt = 0.0, bool paused = false, int audioStream = -1);
    void closeMedia();
    QString mediaPath() const;
    // The time of the picture on screen (of the sound, without pictures).
    double shownPosition() const;
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
    // One frame while paused, SeekStepSeconds while playing.
    void stepOrSeekForward();
    void stepOrSeekBackward();
    void speedUp();
    void speedDown();
    void volumeUp();
    void volumeDown();
    void onSeekRequested(double secsFromStart);

Q_SIGNALS:
    // The start of `path` that openMedia() asked for: 0 and an empty message on success;
    // otherwise the message is the reason, for the user.
    void initFinished(int code, const QString &message, const QString &path);
    // Playback of `path` ended with an error after it had started.
    void playbackFailed(const QString &path, const QString &message);
    // The length of the opened media in seconds, once it is known.
    void durationKnown(double seconds);
    void fileDropped(const QString &path);
    void volumeChanged(double volume);

private:
    struct Request
    {
        QString path;
        double startAt = 0.0;
        bool paused = false;
        int audioStream = -1;
    };
    struct CheckResult
    {
        OV::Error error;
        double duration = 0.0;
    };
    static CheckResult checkPlayable(const QString &path);
    void onChecked(const Request &request, const CheckResult &result);
    void start(const Request &request);
    void onPlayerInitFinished(int code);
    void onPlayerErrorRaised();

    OVVideoPlayer *m_player = nullptr;
    OVPlayerCanvas *m_canvas = nullptr;
    OVPlayerControls *m_controls = nullptr;
    bool m_awaitingInit = false;
    // Counts openMedia() and closeMedia() calls: a check that finishes after a newer request is
    // thrown away.
    int m_openGeneration = 0;
    // What played before the file being started, to go back to if it fails.
    Request m_fallback;
    // The picture a paused start is to show, aimed at once the frame rate is known; -1 when none.
    double m_settleAt = -1.0;
    QPointer<OVProject::State> m_state;
};
