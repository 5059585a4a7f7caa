#pragma once

#include "log/overror.h"
#include "media/nxffmpegwrapper.h"

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class OVWaveformPyramid;
class OVWaveforms;

// Brings the waveform of every audio stream of one recording into memory, one stream after the
// other: the ffmpeg tool transcodes the stream to a temporary WAV file that starts where the
// recording starts (a stream that begins later is preceded by silence, so it lines up with the
// timeline), an OVWaveforms thread reads it into a pyramid, and the file is removed. Each stream is
// announced as soon as it is ready, so the first one shows while the others load.
class OVWaveformsLoader : public QObject
{
    Q_OBJECT

public:
    explicit OVWaveformsLoader(QObject *parent = nullptr);
    // Stops the tool and the thread and removes the temporary file.
    ~OVWaveformsLoader() override;

    void setToolPath(const QString &path) { m_toolPath = path; }

    // Starts loading `media`, cancelling a load under way first (its finished() is not sent).
    void start(const QString &media);
    // Stops and reports finished(StoppedByUser).
    void cancel();
    // Stops without a report, as when the recording is gone.
    void stop();
    bool isRunning() const { return m_running; }
    QString media() const { return m_media; }
    // Audio streams of the recording being loaded (known once start() returned).
    int streamCount() const { return int(m_streams.size()); }

Q_SIGNALS:
    // `index` counts the audio streams from 0, as the tool's "-map 0:a:N" does.
    void trackLoaded(int index, const QString &name, std::shared_ptr<const OVWaveformPyramid> waveform);
    // Share of the whole recording done, 0..1.
    void progress(double share);
    // After the last stream, a failure or cancel (StoppedByUser); the streams announced before
    // a failure stay valid.
    void finished(OV::Error error);

private:
    void onFfmpegProgress(qreal percent, quint64 timeremaining);
    void onFfmpegFinished(NXFFmpegWrapper::ErrorCode error);
    void onWaveformsFinished();

    struct Stream
    {
        QString name;
    };

    void next();
    void finish(const OV::Error &error);

    QString m_toolPath;
    QString m_media;
    QList<Stream> m_streams;
    int m_current = -1;
    QString m_wav;
    bool m_running = false;
    NXFFmpegWrapper *m_ffmpeg = nullptr;
    OVWaveforms *m_thread = nullptr;
};
