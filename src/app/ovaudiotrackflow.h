#pragma once

#include "log/overror.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

class OVEditAudioTracksDlg;
class OVManualSyncMerge;
class OVMediaInfo;
class OVPlayerPanel;
class OVUISettings;
class QMainWindow;
class QWidget;

// File > "Add Audio Track" and "Edit Audio Tracks": the recording that plays gets the sound of a
// second recording of the same event, synchronised, as a further audio stream, or loses one of
// its streams. The file is rewritten by the ffmpeg tool beside itself and swapped in only when
// complete, with a dated backup copy kept next to it, so the recording is whole however the
// work ends. Afterwards the player comes back on the new file where it was.
class OVAudioTrackFlow : public QObject
{
    Q_OBJECT

public:
    OVAudioTrackFlow(QMainWindow *window, OVPlayerPanel *player);
    ~OVAudioTrackFlow() override;

    // Where the copy of `media` is kept while (and after) it is rewritten: beside it, dated.
    static QString backupPath(const QString &media);
    bool isBusy() const { return m_busy; }
    // Where the stream chosen to play in each recording is remembered across sessions.
    void setSettings(OVUISettings *settings);
    // Before `media` is opened: the player is to play the stream last chosen for it, else the first.
    // The stream last chosen to play for `media`, 0 when none was.
    int rememberedAudioStream(const QString &media) const;

public Q_SLOTS:
    void addAudioTrack();
    void editAudioTracks();

Q_SIGNALS:
    // The recording's file was replaced by one with other audio streams.
    void recordingRewritten(const QString &path);

protected:
    virtual QString chooseSecondaryPath();
    virtual void showError(const QString &title, const QString &message);
    virtual void showInfo(const QString &title, const QString &message);
    virtual bool confirm(const QString &title, const QString &question);

private:
    // Runs `start` (which starts `merge`) with the wait pane over `cover` until finished().
    OV::Error runMerge(OVManualSyncMerge &merge, const QString &title, QWidget *cover,
                       const std::function<bool()> &start);
    bool probe(const QString &path, OVMediaInfo *info);
    void reopen(const QString &path, double position, bool paused, int audioStream);
    void removeStream(int nth);
    void playStream(int nth);
    // Plays stream `nth` of `media` and remembers the choice.
    void choosePlayingStream(const QString &media, int nth);
    // Remembers stream `nth` as the one to play for `media` when it is next opened.
    void rememberPlayingStream(const QString &media, int nth);

    QMainWindow *m_window;
    OVPlayerPanel *m_player;
    QPointer<OVEditAudioTracksDlg> m_editDialog;
    QPointer<OVUISettings> m_settings;
    bool m_busy = false;
};
