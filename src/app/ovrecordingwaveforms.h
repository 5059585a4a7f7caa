#pragma once

#include "log/overror.h"

#include <QObject>
#include <QPointer>
#include <QString>

class QAction;
class OVTimelineWidget;
class OVUISettings;
class OVWaveformsLoader;

// Keeps the timeline's waveform strip showing the sound of the project's recording: loads it in
// the background whenever the recording changes (only while the strip is shown, so a hidden strip
// costs nothing), drops it when the recording goes, and shows or hides the strip with its action.
class OVRecordingWaveforms : public QObject
{
    Q_OBJECT

public:
    OVRecordingWaveforms(OVTimelineWidget *timeline, QAction *toggle, QObject *parent = nullptr);
    ~OVRecordingWaveforms() override;

    // The recording to show; an empty path clears the strip. The same path again does nothing.
    void setRecording(const QString &path);
    QString recording() const { return m_recording; }
    bool isLoading() const;
    OVWaveformsLoader *loader() const { return m_loader; }
    // Shows the strip as it was left (shown or hidden, and its height) and keeps it so from now on.
    void setSettings(OVUISettings *settings);

Q_SIGNALS:
    // Every stream of the recording is shown, or the load ended with `error`.
    void finished(OV::Error error);
    void cleared();

private:
    void setShown(bool on);
    void load();

    QPointer<OVTimelineWidget> m_timeline;
    QAction *m_toggle;
    QPointer<OVUISettings> m_settings;
    OVWaveformsLoader *m_loader;
    QString m_recording;
    // The recording whose tracks the strip holds (or is loading).
    QString m_loaded;
};
