#pragma once

#include "log/overror.h"
#include "media/nxffmpegwrapper.h"

#include <QFutureWatcher>
#include <QObject>
#include <QString>
#include <QStringList>

struct OVSamples;

// Brings one audio stream of each of two recordings into memory: the ffmpeg tool transcodes each
// stream to a temporary mono 22050 Hz WAV file, then both files are read on a pool thread and
// removed. A recording without sound becomes a silent track as long as the recording. The loader
// dialog drives its progress bars from the signals; the command line waits with run().
class OVSamplesExtractor : public QObject
{
    Q_OBJECT

public:
    enum Track { Primary = 0, Secondary = 1 };

    static constexpr int SampleRate = 22050;

    explicit OVSamplesExtractor(QObject *parent = nullptr);
    // Stops the tool, waits for a load under way and removes the temporary files.
    ~OVSamplesExtractor() override;

    // The tool's argument line for one stream; a negative stream index lets the tool choose.
    static QStringList extractionArguments(const QString &media, int streamIndex, const QString &wav);
    // The same, but sample 0 of the WAV is the recording's start (where the player's positions
    // count from), silence filling the time before the stream begins: for drawing on the timeline.
    static QStringList timelineExtractionArguments(const QString &media, int streamIndex, const QString &wav);
    // A WAV path in the temporary folder that no other extraction, of this process or another, uses.
    static QString temporaryWavPath();

    // Overrides where the ffmpeg tool is looked for.
    void setToolPath(const QString &path) { m_toolPath = path; }

    // Starts the extraction of both streams into the caller's buffers, which must outlive the
    // extraction and are not to be read before finished(). False when one is already running.
    bool start(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia, int secondaryStream,
               OVSamples *primary, OVSamples *secondary);
    // start() and a local event loop until it has finished.
    OV::Error run(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                  int secondaryStream, OVSamples *primary, OVSamples *secondary);
    void cancel();
    bool isRunning() const { return m_running; }

Q_SIGNALS:
    void trackStarted(int track);
    void progress(int track, qreal percent, quint64 timeremaining);
    void loadingStarted();
    void finished(OV::Error error);

private Q_SLOTS:
    void onFfmpegProgress(qreal percent, quint64 timeremaining);
    void onFfmpegFinished(NXFFmpegWrapper::ErrorCode error);
    void onLoadingFinished();

private:
    void extract(int track);
    void writeSilentTrack(int track);
    void finish(const OV::Error &error);
    void removeTemporaryFiles();

    QString m_toolPath;
    QString m_media[2];
    int m_stream[2] = { -1, -1 };
    double m_duration[2] = { 0, 0 };
    int m_audioStreams[2] = { 0, 0 };
    QString m_wav[2];
    OVSamples *m_samples[2] = { nullptr, nullptr };
    int m_track = Primary;
    bool m_running = false;
    bool m_canceled = false;
    NXFFmpegWrapper *m_ffmpeg = nullptr;
    QFutureWatcher<OV::Error> m_loading;
};
