#pragma once

#include "settings/ovsettingsgroup.h"

// Interface language, silenced messages and the main window's layout (-1: nothing saved yet).
class OVUISettings : public OVSettingsGroup
{
    Q_OBJECT
public:
    static constexpr int DefaultAutosaveMinutes = 5;

    explicit OVUISettings(QObject *parent = nullptr);

    QString language() const { return value(QStringLiteral("Language")).toString(); }
    void setLanguage(const QString &lang) { setValue(QStringLiteral("Language"), lang); }
    QString disabledMessagesMd5() const { return value(QStringLiteral("disabledMessagesMd5")).toString(); }
    void setDisabledMessagesMd5(const QString &v) { setValue(QStringLiteral("disabledMessagesMd5"), v); }
    QString enabledViews() const { return value(QStringLiteral("enabledViews")).toString(); }
    void setEnabledViews(const QString &v) { setValue(QStringLiteral("enabledViews"), v); }
    QString playerSize() const { return value(QStringLiteral("playerSize")).toString(); }
    void setPlayerSize(const QString &v) { setValue(QStringLiteral("playerSize"), v); }
    int timelineControlHeight() const { return intValue(QStringLiteral("timelineControlHeight")); }
    void setTimelineControlHeight(int v) { setValue(QStringLiteral("timelineControlHeight"), v); }
    int transcriptControlWidth() const { return intValue(QStringLiteral("transcriptControlWidth")); }
    void setTranscriptControlWidth(int v) { setValue(QStringLiteral("transcriptControlWidth"), v); }
    // The player's volume, 1 = as recorded.
    double playbackVolume() const;
    void setPlaybackVolume(double v) { setValue(QStringLiteral("playbackVolume"), v); }
    int waveformsHeight() const { return intValue(QStringLiteral("waveformsHeight")); }
    void setWaveformsHeight(int v) { setValue(QStringLiteral("waveformsHeight"), v); }
    // Whether the view named `view` (e.g. "waveforms") was left shown; `byDefault` when never saved.
    bool viewEnabled(const QString &view, bool byDefault) const;
    void setViewEnabled(const QString &view, bool on);

    // The audio stream (counted from 0) chosen to play in the recording at `mediaPath`; 0 when
    // none was chosen. Kept for the most recent MaxRememberedStreams recordings.
    static constexpr int MaxRememberedStreams = 50;
    int playingAudioStream(const QString &mediaPath) const;
    void setPlayingAudioStream(const QString &mediaPath, int nth);

    // Saving the open project every few minutes (when it has a file and unsaved changes).
    bool autosave() const;
    void setAutosave(bool on) { setValue(QStringLiteral("autosave"), on); }
    int autosaveMinutes() const;
    void setAutosaveMinutes(int minutes) { setValue(QStringLiteral("autosaveMinutes"), minutes); }

private:
    int intValue(const QString &key) const;
};
