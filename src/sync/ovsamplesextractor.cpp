#include "sync/ovsamplesextractor.h"

#include "media/ovmediainfo.h"
#include "sync/ovsamples.h"
#include "sync/ovsynclogging.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QtConcurrent/QtConcurrentRun>

namespace {

const QString ExtractionTemplate = QStringLiteral("-y -i \"%1\" %2 -vn -ac 1 -ar 22050 \"%3\"");
const QString StreamSelector = QStringLiteral("-map 0:a:%1");
// The tool writes a stream from its first sample; a stream that starts after its file does would
// then begin early. Padding to the output's zero, which is the file's start, keeps it in place.
const QString TimelineTemplate = QStringLiteral("-y -i \"%1\" %2 -vn -af aresample=first_pts=0 -ac 1 -ar 22050 \"%3\"");
const QString NoStreamOutput = QStringLiteral("does not contain any stream");

void alignToFileStart(OVSamples &samples, double lead)
{
    const qint64 shift = std::llround(lead * samples.sampleRate);
    if (shift > 0) {
        samples.data.insert(samples.data.begin(), size_t(shift), qint16(0));
    } else if (shift < 0) {
        const qint64 drop = std::min<qint64>(-shift, qint64(samples.data.size()));
        samples.data.erase(samples.data.begin(), samples.data.begin() + drop);
    }
    samples.count = qint64(samples.data.size());
}

struct Load
{
    struct Track
    {
        QString wav;
        OVSamples *samples = nullptr;
        QString media;
        int stream = -1;
        bool sound = false; // false: a silent track made for a recording without sound
    };
    Track tracks[2];
};

// On a pool thread, and touching only the two buffers it is handed: both tracks are read, then
// each is moved so that its sample 0 is its recording's start. The tool writes a stream from its
// first sample; a stream that starts after its file (a camera's sound often does, by tens of
// milliseconds and more) would sit early on the recording's time axis, and so would every offset
// found on it and the merged stream.
OV::Error loadAligned(const Load &load)
{
    const Load::Track &p = load.tracks[OVSamplesExtractor::Primary];
    const Load::Track &s = load.tracks[OVSamplesExtractor::Secondary];
    const OV::Error error = loadTrackPair(p.wav, p.samples, s.wav, s.samples);
    if (!error.isOk())
        return error;
    for (const Load::Track &track : load.tracks) {
        if (!track.sound)
            continue;
        double lead = 0.0;
        const OV::Error leadError = OVMediaInfo::probeAudioStart(track.media, track.stream, &lead);
        if (!leadError.isOk()) {
            qCWarning(lcSync) << "OVSamplesExtractor: where the sound of" << track.media
                              << "starts is not known:" << leadError.message();
            continue;
        }
        alignToFileStart(*track.samples, lead);
    }
    return error;
}

} // namespace

OVSamplesExtractor::OVSamplesExtractor(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<OV::Error>();
    connect(&m_loading, &QFutureWatcher<OV::Error>::finished, this, &OVSamplesExtractor::onLoadingFinished);
}

OVSamplesExtractor::~OVSamplesExtractor()
{
    if (m_ffmpeg) {
        m_ffmpeg->disconnect(this);
        m_ffmpeg->stop();
        m_ffmpeg->waitForFinished(5000);
    }
    // The pool thread writes into the caller's buffers: it must be done before they go away.
    m_loading.disconnect(this);
    m_loading.waitForFinished();
    removeTemporaryFiles();
}

QStringList OVSamplesExtractor::extractionArguments(const QString &media, int streamIndex, const QString &wav)
{
    const QString selector = streamIndex >= 0 ? StreamSelector.arg(streamIndex) : QString();
    return NXFFmpegWrapper::arguments(ExtractionTemplate, { media, selector, wav });
}

QStringList OVSamplesExtractor::timelineExtractionArguments(const QString &media, int streamIndex, const QString &wav)
{
    const QString selector = streamIndex >= 0 ? StreamSelector.arg(streamIndex) : QString();
    return NXFFmpegWrapper::arguments(TimelineTemplate, { media, selector, wav });
}

QString OVSamplesExtractor::temporaryWavPath()
{
    static QAtomicInteger<int> serial;
    return QDir(QDir::tempPath())
        .filePath(QStringLiteral("kavot-sync-%1-%2-%3.wav")
                      .arg(QDateTime::currentMSecsSinceEpoch())
                      .arg(QCoreApplication::applicationPid())
                      .arg(serial.fetchAndAddRelaxed(1)));
}

bool OVSamplesExtractor::start(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                               int secondaryStream, OVSamples *primary, OVSamples *secondary)
{
    if (m_running || !primary || !secondary)
        return false;
    m_running = true;
    m_canceled = false;
    m_media[Primary] = primaryMedia;
    m_media[Secondary] = secondaryMedia;
    m_stream[Primary] = primaryStream;
    m_stream[Secondary] = secondaryStream;
    m_samples[Primary] = primary;
    m_samples[Secondary] = secondary;

    // Both files are looked at before any work starts, so a bad second file is reported at once.
    for (int t : { Primary, Secondary }) {
        OVMediaInfo info;
        const OV::Error error = OVMediaInfo::probe(m_media[t], &info);
        if (!error.isOk()) {
            qCWarning(lcSync) << "OVSamplesExtractor: cannot open" << m_media[t] << error.message();
            finish(OV::Error(1, QStringLiteral("Failed to open file\n\t") + m_media[t]));
            return true;
        }
        m_duration[t] = info.duration;
        m_audioStreams[t] = 0;
        for (const OVMediaInfo::Stream &s : info.streams)
            m_audioStreams[t] += s.type == QLatin1String("audio") ? 1 : 0;
        if (m_audioStreams[t] > 0 && m_stream[t] >= m_audioStreams[t]) {
            finish(OV::Error(1, QStringLiteral("The file has no audio stream #%1 (it has %2):\n\t")
                                        .arg(m_stream[t])
                                        .arg(m_audioStreams[t])
                                    + m_media[t]));
            return true;
        }
    }
    extract(Primary);
    return true;
}

OV::Error OVSamplesExtractor::run(const QString &primaryMedia, int primaryStream, const QString &secondaryMedia,
                                  int secondaryStream, OVSamples *primary, OVSamples *secondary)
{
    OV::Error result(6, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::UnknownError));
    QEventLoop loop;
    bool done = false;
    const auto connection = connect(this, &OVSamplesExtractor::finished, &loop, [&](const OV::Error &error) {
        result = error;
        done = true;
        loop.quit();
    });
    if (!start(primaryMedia, primaryStream, secondaryMedia, secondaryStream, primary, secondary)) {
        disconnect(connection);
        return OV::Error(6, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::UnknownError));
    }
    if (!done)
        loop.exec();
    disconnect(connection);
    return result;
}

void OVSamplesExtractor::cancel()
{
    if (!m_running)
        return;
    m_canceled = true;
    if (m_ffmpeg && m_ffmpeg->isRunning())
        m_ffmpeg->stop();
}

void OVSamplesExtractor::extract(int track)
{
    m_track = track;
    m_wav[track] = temporaryWavPath();
    Q_EMIT trackStarted(track);
    if (m_audioStreams[track] == 0) {
        // Nothing for the tool to transcode; the recording still needs a track of its length.
        writeSilentTrack(track);
        return;
    }
    if (!m_ffmpeg) {
        m_ffmpeg = new NXFFmpegWrapper(this);
        connect(m_ffmpeg, &NXFFmpegWrapper::progress, this, &OVSamplesExtractor::onFfmpegProgress);
        connect(m_ffmpeg, &NXFFmpegWrapper::finished, this, &OVSamplesExtractor::onFfmpegFinished,
                Qt::QueuedConnection);
    }
    if (!m_toolPath.isEmpty())
        m_ffmpeg->setToolPath(m_toolPath);
    m_ffmpeg->start(extractionArguments(m_media[track], m_stream[track], m_wav[track]));
}

void OVSamplesExtractor::writeSilentTrack(int track)
{
    const qint64 count = qint64(std::max(0.0, m_duration[track]) * SampleRate);
    qCInfo(lcSync) << "OVSamplesExtractor: no sound in" << m_media[track] << "- silent track of" << count << "samples";
    const std::vector<qint16> silence(size_t(std::max<qint64>(count, 1)), 0);
    if (!writeWavSamples(silence.data(), nullptr, qint64(silence.size()), SampleRate, m_wav[track])) {
        finish(OV::Error(NXFFmpegWrapper::TempFileError, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::TempFileError)));
        return;
    }
    onFfmpegFinished(NXFFmpegWrapper::NoError);
}

void OVSamplesExtractor::onFfmpegProgress(qreal percent, quint64 timeremaining)
{
    Q_EMIT progress(m_track, percent, timeremaining);
}

void OVSamplesExtractor::onFfmpegFinished(NXFFmpegWrapper::ErrorCode error)
{
    if (!m_running)
        return;
    if (m_canceled) {
        finish(OV::Error(NXFFmpegWrapper::StoppedByUser, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::StoppedByUser)));
        return;
    }
    if (error != NXFFmpegWrapper::NoError) {
        if (m_ffmpeg && m_ffmpeg->output().contains(NoStreamOutput)) {
            writeSilentTrack(m_track);
            return;
        }
        finish(OV::Error(error, NXFFmpegWrapper::errorMessage(error) + QStringLiteral("\n\t") + m_media[m_track]));
        return;
    }
    if (m_track == Primary) {
        extract(Secondary);
        return;
    }
    Q_EMIT loadingStarted();
    Load load;
    for (int t : { Primary, Secondary })
        load.tracks[t] = { m_wav[t], m_samples[t], m_media[t], m_stream[t], m_audioStreams[t] > 0 };
    m_loading.setFuture(QtConcurrent::run(loadAligned, load));
}

void OVSamplesExtractor::onLoadingFinished()
{
    if (!m_running)
        return;
    const OV::Error error = m_loading.result();
    if (m_canceled) {
        finish(OV::Error(NXFFmpegWrapper::StoppedByUser, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::StoppedByUser)));
        return;
    }
    finish(error);
}

void OVSamplesExtractor::finish(const OV::Error &error)
{
    m_running = false;
    removeTemporaryFiles();
    if (!error.isOk())
        qCWarning(lcSync) << "OVSamplesExtractor failed:" << error.message();
    Q_EMIT finished(error);
}

void OVSamplesExtractor::removeTemporaryFiles()
{
    for (QString &wav : m_wav) {
        if (!wav.isEmpty())
            QFile::remove(wav);
        wav.clear();
    }
}
