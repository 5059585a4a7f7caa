#include "mediatesthelper.h"

#include "media/ovaudioresampler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QtTest>

#include <cmath>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace MediaTest {

bool haveFfmpeg()
{
    return !QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty();
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}

QStringList args(const char *line)
{
    return QString::fromLatin1(line).split(u' ');
}

QString generate(const QString &dir, const QString &name, const QStringList &args)
{
    const QString out = QDir(dir).filePath(name);
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    QStringList all { QStringLiteral("-y"), QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"),
                      QStringLiteral("error") };
    all << args << out;
    p.start(QStringLiteral("ffmpeg"), all);
    if (!p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        qWarning() << "ffmpeg failed:" << all << p.readAll();
        return QString();
    }
    return out;
}

bool runToEnd(OVVideoDecoderBase *decoder, int timeoutMs)
{
    // QThread::wait rather than a spy's wait: a short run can end before a spy starts waiting, and
    // the spies of the tests record the decoder's signals directly, in the decoding thread.
    decoder->start();
    if (!decoder->wait(timeoutMs)) {
        decoder->stop();
        decoder->wait(10000);
        return false;
    }
    return true;
}

} // namespace MediaTest

RecordingDecoder::~RecordingDecoder()
{
    stop();
    wait();
}

void RecordingDecoder::processVideoFrame(AVFrame *frame)
{
    const double t = frameTime(frame, videoTimeBase());
    OVVideoFrame converted;
    bool ok = true;
    if (m_maxSize.isValid())
        ok = m_converter.convert(frame, &converted);
    bool requestNow = false;
    {
        QMutexLocker lock(&mutex);
        videoTimes.append(t);
        if (m_afterSeek)
            videoTimesAfterSeek.append(t);
        if (m_maxSize.isValid()) {
            converterOk = converterOk && ok;
            lastFrame = converted;
        }
        requestNow = m_seekTarget >= 0 && !m_seekRequested && t >= m_seekAt;
        m_seekRequested = m_seekRequested || requestNow;
    }
    if (requestNow)
        requestSeek(m_seekTarget);
}

void RecordingDecoder::processAudioFrame(AVFrame *frame, OVAudioStream &stream)
{
    int samples = 0;
    if (stream.resampler) {
        std::vector<qint16> out;
        stream.resampler->convert(frame, out, &samples);
    }
    const double t = frameTime(frame, stream.timeBase);
    QMutexLocker lock(&mutex);
    audioSamples[stream.stream->index] += samples;
    if (m_afterSeek)
        audioTimesAfterSeek.append(t);
}

int RecordingDecoder::initDecoding(AVFormatContext *, AVStream *videoStream, AVCodecContext *videoCodec,
                                   OVAudioStreamMap &audioStreams)
{
    if (videoCodec && m_maxSize.isValid()) {
        const OV::Error err = m_converter.init(QSize(videoCodec->width, videoCodec->height), videoCodec->pix_fmt,
                                               m_maxSize, videoStream);
        if (err) {
            setError(FirstSubclassError, err.message());
            return FirstSubclassError;
        }
    }
    for (auto &entry : audioStreams) {
        entry.second.resampler = std::make_unique<OVAudioResampler>();
        const OV::Error err = entry.second.resampler->init(entry.second.codec);
        if (err) {
            setError(FirstSubclassError + 1, err.message());
            return FirstSubclassError + 1;
        }
    }
    QMutexLocker lock(&mutex);
    initCalled = true;
    audioCountAtInit = int(audioStreams.size());
    return 0;
}

void RecordingDecoder::deinitDecoding()
{
    QMutexLocker lock(&mutex);
    deinitCalled = true;
}

void RecordingDecoder::endOfStreamReached()
{
    QMutexLocker lock(&mutex);
    endOfStream = true;
}

void RecordingDecoder::seekPerformed(double, int)
{
    QMutexLocker lock(&mutex);
    ++seeks;
    m_afterSeek = true;
}

bool StallingSource::read(qint64 from, qint64 to, QByteArray &out, const std::atomic<bool> *cancel)
{
    out.clear();
    if (from >= 0 && from < m_available) {
        out = m_data.mid(from, std::min(to, m_available) - from);
        return true;
    }
    Q_EMIT waitingOnData();
    QMutexLocker lock(&m_mutex);
    ++m_waits;
    // No data ever comes; only a cancel ends the wait. A bounded wait re-checks the flag even if a
    // wake-up were missed.
    while (!(cancel && cancel->load()))
        m_wake.wait(&m_mutex, 1000);
    return false;
}

void StallingSource::wakeReaders()
{
    QMutexLocker lock(&m_mutex);
    m_wake.wakeAll();
}

int StallingSource::waits() const
{
    QMutexLocker lock(&m_mutex);
    return m_waits;
}

namespace MediaTest {

namespace {
QString nullAudioScript()
{
    QString root = qEnvironmentVariable("KAVOT_SOURCE_DIR");
    if (root.isEmpty())
        root = QFileInfo(QStringLiteral(__FILE__)).absolutePath() + QStringLiteral("/../..");
    return root + QStringLiteral("/scripts/null-audio.sh");
}
} // namespace

bool NullAudioServer::start(const QString &tag)
{
    const QString pid = QString::number(QCoreApplication::applicationPid());
    m_dir = QDir::tempPath() + QStringLiteral("/kv%1-").arg(tag) + pid;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KAVOT_NULL_AUDIO_OWNER"), pid);
    p.setProcessEnvironment(env);
    p.start(QStringLiteral("bash"), { nullAudioScript(), QStringLiteral("start"), m_dir });
    if (!p.waitForFinished(20000) || p.exitCode() != 0) {
        m_error = QStringLiteral("null audio server did not start: ") + QString::fromLocal8Bit(p.readAllStandardError());
        return false;
    }
    for (const QString &line : QString::fromLocal8Bit(p.readAllStandardOutput()).split(u'\n')) {
        if (!line.startsWith(QStringLiteral("export ")))
            continue;
        const QString name = line.mid(7).section(u'=', 0, 0);
        const QString value = line.mid(7).section(u'=', 1);
        qputenv(name.toLocal8Bit().constData(), value.toLocal8Bit());
        if (name == QStringLiteral("KAVOT_NULL_SINK"))
            m_sink = value;
    }
    return true;
}

void NullAudioServer::stop()
{
    if (!m_dir.isEmpty())
        QProcess::execute(QStringLiteral("bash"), { nullAudioScript(), QStringLiteral("stop"), m_dir });
    m_dir.clear();
}

} // namespace MediaTest
