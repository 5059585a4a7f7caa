#include "sync/ovwaveformsloader.h"
#include "sync/ovsynclogging.h"

#include "media/ovmediainfo.h"
#include "sync/ovsamplesextractor.h"
#include "sync/ovwaveforms.h"
#include "widgets/ovwaveformpyramid.h"

#include <QDebug>
#include <QFile>

OVWaveformsLoader::OVWaveformsLoader(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<OV::Error>();
}

OVWaveformsLoader::~OVWaveformsLoader()
{
    stop();
}

void OVWaveformsLoader::start(const QString &media)
{
    stop();
    m_media = media;
    m_streams.clear();
    m_current = -1;
    m_running = true;

    OVMediaInfo info;
    const OV::Error error = OVMediaInfo::probe(media, &info);
    if (!error.isOk()) {
        qCWarning(lcSync) << "OVWaveformsLoader: cannot open" << media << error.message();
        finish(OV::Error(1, QStringLiteral("Failed to open file\n\t") + media));
        return;
    }
    for (const OVMediaInfo::Stream &s : std::as_const(info.streams)) {
        if (s.type != QLatin1String("audio"))
            continue;
        QString name = tr("Audio %1").arg(m_streams.size() + 1);
        if (!s.channelLayout.isEmpty())
            name += QStringLiteral(" (%1)").arg(s.channelLayout);
        m_streams.append({ name });
    }
    next();
}

void OVWaveformsLoader::cancel()
{
    if (!m_running)
        return;
    stop();
    finish(OV::Error(NXFFmpegWrapper::StoppedByUser, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::StoppedByUser)));
}

void OVWaveformsLoader::stop()
{
    if (m_ffmpeg) {
        // A tool stopped here must not report into the next load.
        m_ffmpeg->disconnect(this);
        m_ffmpeg->stop();
        m_ffmpeg->waitForFinished(5000);
        m_ffmpeg->deleteLater();
        m_ffmpeg = nullptr;
    }
    if (m_thread) {
        m_thread->disconnect(this);
        m_thread->cancel();
        m_thread->wait();
        m_thread->deleteLater();
        m_thread = nullptr;
    }
    if (!m_wav.isEmpty())
        QFile::remove(m_wav);
    m_wav.clear();
    m_running = false;
}

void OVWaveformsLoader::next()
{
    ++m_current;
    if (m_current >= m_streams.size()) {
        finish(OV::Error::success());
        return;
    }
    Q_EMIT progress(double(m_current) / m_streams.size());
    m_wav = OVSamplesExtractor::temporaryWavPath();
    m_ffmpeg = new NXFFmpegWrapper(this);
    if (!m_toolPath.isEmpty())
        m_ffmpeg->setToolPath(m_toolPath);
    connect(m_ffmpeg, &NXFFmpegWrapper::progress, this, &OVWaveformsLoader::onFfmpegProgress);
    // Queued, because the tool object is deleted in the slot; and a report that was already on
    // its way when the tool was stopped must not pass for the next tool's, hence the check.
    NXFFmpegWrapper *tool = m_ffmpeg;
    connect(
        tool, &NXFFmpegWrapper::finished, this,
        [this, tool](NXFFmpegWrapper::ErrorCode error) {
            if (tool == m_ffmpeg)
                onFfmpegFinished(error);
        },
        Qt::QueuedConnection);
    m_ffmpeg->start(OVSamplesExtractor::timelineExtractionArguments(m_media, m_current, m_wav));
}

void OVWaveformsLoader::onFfmpegProgress(qreal percent, quint64)
{
    // Reading the WAV back takes a fraction of the transcoding: count the tool as 90% of a stream.
    const double share = (m_current + 0.9 * std::clamp<double>(percent, 0.0, 1.0)) / std::max<qsizetype>(1, m_streams.size());
    Q_EMIT progress(share);
}

void OVWaveformsLoader::onFfmpegFinished(NXFFmpegWrapper::ErrorCode error)
{
    if (!m_running || !m_ffmpeg)
        return;
    const QString output = m_ffmpeg->output();
    m_ffmpeg->deleteLater();
    m_ffmpeg = nullptr;
    if (error != NXFFmpegWrapper::NoError) {
        qCWarning(lcSync).noquote() << "OVWaveformsLoader: the tool failed on stream" << m_current << "of" << m_media
                             << "\n" << output.right(2000);
        QFile::remove(m_wav);
        m_wav.clear();
        finish(OV::Error(error, NXFFmpegWrapper::errorMessage(error) + QStringLiteral("\n\t") + m_media));
        return;
    }
    m_thread = new OVWaveforms(m_wav, this);
    OVWaveforms *thread = m_thread;
    connect(m_thread, &QThread::finished, this, [this, thread] {
        if (thread == m_thread)
            onWaveformsFinished();
    });
    m_thread->start(QThread::LowPriority);
}

void OVWaveformsLoader::onWaveformsFinished()
{
    if (!m_running || !m_thread)
        return;
    const std::shared_ptr<const OVWaveformPyramid> pyramid = m_thread->pyramid();
    m_thread->deleteLater();
    m_thread = nullptr;
    QFile::remove(m_wav);
    m_wav.clear();
    if (!pyramid) {
        finish(OV::Error(1, QStringLiteral("Failed to load samples from file:\n  ") + m_media));
        return;
    }
    Q_EMIT trackLoaded(m_current, m_streams.at(m_current).name, pyramid);
    next();
}

void OVWaveformsLoader::finish(const OV::Error &error)
{
    m_running = false;
    if (!error.isOk())
        qCWarning(lcSync) << "OVWaveformsLoader:" << error.message();
    Q_EMIT finished(error);
}
