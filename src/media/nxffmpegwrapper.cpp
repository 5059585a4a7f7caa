#include "media/nxffmpegwrapper.h"

#include "media/ovmedialogging.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

const QString NXFFmpegWrapper::CutFromTemplate = QStringLiteral("-y -ss %1 -i \"%2\"");
const QString NXFFmpegWrapper::CopyLengthTemplate = QStringLiteral("-y -t \"%2\" -i \"%1\" -c copy \"%3\"");
const QString NXFFmpegWrapper::ConcatTemplate = QStringLiteral("-y -f concat -i \"%1\" -map 0 -codec copy \"%2\"");
const QString NXFFmpegWrapper::LoopImageTemplate = QStringLiteral(" -loop 1 -i \"%1\"");

const QString NXFFmpegWrapper::ProblematicFragment = QStringLiteral("Apple Alias Data Handler");
const QString NXFFmpegWrapper::ProblematicFragmentDescription = QStringLiteral(
    "There is known issues with this type of MOV files, please reencode it using QuickTime->Export to 480p and "
    "try again");

namespace {

double secondsOf(const QRegularExpressionMatch &m)
{
    return m.captured(1).toInt() * 3600.0 + m.captured(2).toInt() * 60.0 + m.captured(3).toInt()
        + m.captured(4).toInt() / 100.0;
}

} // namespace

NXFFmpegWrapper::NXFFmpegWrapper(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<NXFFmpegWrapper::ErrorCode>();
}

NXFFmpegWrapper::~NXFFmpegWrapper()
{
    if (m_process) {
        m_process->disconnect(this);
        if (m_process->state() != QProcess::NotRunning) {
            m_process->kill();
            m_process->waitForFinished(5000);
        }
    }
}

QString NXFFmpegWrapper::errorMessage(ErrorCode code)
{
    switch (code) {
    case NoError:
        return QStringLiteral("No error");
    case BinaryMissing:
        return QStringLiteral("FFMpeg binary is missing");
    case FFmpegError:
        return QStringLiteral("FFMpeg error occured");
    case OutputLocked:
        return QStringLiteral(
            "Output file seems to be locked. Please close all programs that might be using it and try again");
    case StoppedByUser:
        return QStringLiteral("Conversion stopped by user");
    case TempFileError:
        return QStringLiteral(
            "Failed to create temporary file. Please close all programs that might be using it and try again");
    default:
        return QStringLiteral("Unknown error");
    }
}

QString NXFFmpegWrapper::errorMessage(int code)
{
    return errorMessage(ErrorCode(code));
}

QString NXFFmpegWrapper::defaultToolPath()
{
    if (QCoreApplication::instance()) {
        const QFileInfo beside(QCoreApplication::applicationDirPath() + QStringLiteral("/ffmpeg"));
        if (beside.isFile() && beside.isExecutable())
            return beside.absoluteFilePath();
    }
    return QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
}

void NXFFmpegWrapper::setToolPath(const QString &path)
{
    m_toolPath = path;
}

QString NXFFmpegWrapper::toolPath() const
{
    return m_toolPath.isEmpty() ? defaultToolPath() : m_toolPath;
}

bool NXFFmpegWrapper::checkTool(const QString &path, int msecs)
{
    if (path.isEmpty() || !QFileInfo(path).isExecutable())
        return false;
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(path, { QStringLiteral("-decoders") });
    if (!process.waitForFinished(msecs)) {
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    return QString::fromLocal8Bit(process.readAll()).contains(QLatin1String("ffmpeg version"));
}

QStringList NXFFmpegWrapper::arguments(const QString &templ, const QStringList &values)
{
    QString filled = templ;
    for (int i = 0; i < values.size(); ++i)
        filled.replace(QStringLiteral("%") + QString::number(i + 1), values.at(i));
    return QProcess::splitCommand(filled.trimmed());
}

void NXFFmpegWrapper::parseOutput(OutputState &state, const QString &chunk)
{
    static const QRegularExpression durationRe(
        QStringLiteral("Duration:[ \\t]*([0-9]{2}):([0-9]{2}):([0-9]{2}).([0-9]{2})"));
    static const QRegularExpression timeRe(
        QStringLiteral(" time=[ \\t]*([0-9]{2}):([0-9]{2}):([0-9]{2}).([0-9]{2}) bit"));

    QString text = state.pending + chunk;
    // Only whole lines are parsed: a time cut in two by the pipe would read as a wrong value.
    const qsizetype end = std::max(text.lastIndexOf(QLatin1Char('\n')), text.lastIndexOf(QLatin1Char('\r')));
    state.pending = text.mid(end + 1);
    // A pathological line without an end must not grow without bound.
    if (state.pending.size() > 65536)
        state.pending.clear();
    text.truncate(end + 1);
    if (text.isEmpty())
        return;

    if (state.total < 0) {
        const QRegularExpressionMatch m = durationRe.match(text);
        if (m.hasMatch())
            state.total = secondsOf(m);
    }
    auto it = timeRe.globalMatch(text);
    while (it.hasNext())
        state.done = secondsOf(it.next());
    if (text.contains(ProblematicFragment))
        state.problematicFragment = true;
}

double NXFFmpegWrapper::estimateRemaining(double done, double total, double elapsedSeconds)
{
    if (done <= 0 || total <= 0 || elapsedSeconds < 0)
        return -1.0;
    if (done >= total)
        return 0.0;
    return elapsedSeconds * (total - done) / done;
}

bool NXFFmpegWrapper::start(const QStringList &args)
{
    if (isRunning()) {
        qCWarning(lcMedia) << "NXFFmpegWrapper::start while running ignored";
        return false;
    }
    m_state = OutputState();
    m_output.clear();
    m_stopRequested = false;
    m_finishedSent = false;
    m_lastError = NoError;

    const QString tool = toolPath();
    if (tool.isEmpty() || !QFileInfo(tool).isFile()) {
        qCWarning(lcMedia) << "FFMPEG CMD: tool not found:" << tool;
        finish(BinaryMissing);
        return false;
    }

    delete m_process;
    m_process = new QProcess(this);
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    connect(m_process, &QProcess::readyRead, this, &NXFFmpegWrapper::onReadyRead);
    connect(m_process, &QProcess::errorOccurred, this, &NXFFmpegWrapper::onProcessError);
    connect(m_process, &QProcess::finished, this, &NXFFmpegWrapper::onProcessFinished);
    qCInfo(lcMedia).noquote() << "FFMPEG CMD:" << tool << args.join(QLatin1Char(' '));
    m_timer.start();
    m_process->start(tool, args);
    return true;
}

bool NXFFmpegWrapper::isRunning() const
{
    return m_process && m_process->state() != QProcess::NotRunning;
}

void NXFFmpegWrapper::stop()
{
    if (!isRunning())
        return;
    m_stopRequested = true;
    m_process->kill();
}

bool NXFFmpegWrapper::waitForFinished(int msecs)
{
    if (!m_process)
        return true;
    return m_process->state() == QProcess::NotRunning || m_process->waitForFinished(msecs);
}

void NXFFmpegWrapper::onReadyRead()
{
    const QString chunk = QString::fromLocal8Bit(m_process->readAll());
    if (chunk.isEmpty())
        return;
    qCDebug(lcMedia).noquote() << "FFMPEG Output:" << chunk.trimmed();
    m_output += chunk;
    const bool hadFragment = m_state.problematicFragment;
    const double before = m_state.done;
    parseOutput(m_state, chunk);
    if (m_state.problematicFragment && !hadFragment)
        Q_EMIT problematicFragmentDetected(ProblematicFragment, ProblematicFragmentDescription);
    if (m_state.done != before && m_state.total > 0 && m_state.done >= 0) {
        const qreal percent = std::min(1.0, m_state.done / m_state.total);
        const double remaining = estimateRemaining(m_state.done, m_state.total, m_timer.elapsed() / 1000.0);
        Q_EMIT progress(percent, remaining < 0 ? 0 : quint64(remaining + 0.5));
    }
}

void NXFFmpegWrapper::onProcessError(QProcess::ProcessError error)
{
    qCWarning(lcMedia) << "FFMPEG process error:" << error << (m_process ? m_process->errorString() : QString());
    if (error == QProcess::FailedToStart)
        finish(m_stopRequested ? StoppedByUser : BinaryMissing);
    // A crash or kill is reported by onProcessFinished.
}

void NXFFmpegWrapper::onProcessFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    if (m_process->bytesAvailable() > 0)
        onReadyRead();
    if (!m_state.pending.isEmpty())
        parseOutput(m_state, QStringLiteral("\n"));
    qCInfo(lcMedia) << "FFMPEG Finished:" << exitCode << "  Exit status:" << exitStatus;
    if (m_stopRequested) {
        finish(StoppedByUser);
    } else if (exitStatus != QProcess::NormalExit) {
        finish(FFmpegError);
    } else if (exitCode != 0) {
        // The tool names the failing file; an output it cannot write is one held by another program.
        const bool locked = m_output.contains(QLatin1String("Permission denied"))
            || m_output.contains(QLatin1String("Device or resource busy"));
        finish(locked ? OutputLocked : FFmpegError);
    } else {
        finish(NoError);
    }
}

void NXFFmpegWrapper::finish(ErrorCode code)
{
    if (m_finishedSent)
        return;
    m_finishedSent = true;
    m_lastError = code;
    if (code != NoError)
        qCWarning(lcMedia) << "FFMPEG failed:" << errorMessage(code);
    Q_EMIT finished(code);
}
