#pragma once

#include "log/overror.h"
#include "media/nxffmpegwrapper.h"

#include <QDialog>

class QLabel;
class QProgressBar;
class OVSamplesExtractor;
struct OVSamples;

// The modal step before a sync: brings one audio stream of the primary and of the secondary
// recording into the caller's two buffers, with a bar per stream and one for reading them back.
// Accepted with both buffers filled; rejected on failure (after saying why) or cancel, and then
// the buffers are not to be used. Temporary files are gone when the dialog closes.
class OVManualSamplesLoader : public QDialog
{
    Q_OBJECT

public:
    // A negative stream index lets the tool choose. The buffers must outlive the dialog.
    OVManualSamplesLoader(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                          int secondaryStream, OVSamples *primary, OVSamples *secondary, QWidget *parent = nullptr);
    ~OVManualSamplesLoader() override;

    // Overrides where the ffmpeg tool is looked for.
    void setToolPath(const QString &path);
    // Whether a failure is shown in a message box before the dialog closes (on by default).
    void setReportsErrors(bool on) { m_reportsErrors = on; }
    // Why the dialog was rejected; success once accepted.
    OV::Error error() const { return m_error; }

public Q_SLOTS:
    void onLoadingFinished();
    void onFfmpegProgress(qreal percent, quint64 timeremaining);
    void onFfmpegFinished(NXFFmpegWrapper::ErrorCode error);
    void reject() override;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void start();
    void onTrackStarted(int track);

    QString m_media[2];
    int m_stream[2];
    OVSamples *m_samples[2];
    OVSamplesExtractor *m_extractor;
    QLabel *m_stage;
    QProgressBar *m_bars[2];
    QProgressBar *m_loading;
    int m_track = 0;
    bool m_started = false;
    bool m_reportsErrors = true;
    OV::Error m_error;
};
