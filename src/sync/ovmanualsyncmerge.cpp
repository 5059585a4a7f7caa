#include "sync/ovmanualsyncmerge.h"

#include "media/nxffmpegwrapper.h"
#include "sync/ovsamples.h"
#include "sync/ovsamplesextractor.h"
#include "sync/ovsynclogging.h"

#include <QDebug>
#include <QFile>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <QtConcurrent/QtConcurrentRun>

#include <cstdio>
#include <unistd.h>

namespace {

const QString AddTemplate = QStringLiteral("-y -i \"%1\" -i \"%2\" -map 0 -map 1 -vcodec copy %3 \"%4\"");
const QString ExtraOptions = QStringLiteral("-strict -2");
const QString ExtraOptionsNoData = QStringLiteral("-strict -2 -map -0:d");

// The partial output of the tool, beside the file it is to replace and with the same extension,
// from which the tool picks the container.
QString partialPath(const QString &target)
{
    const QFileInfo info(target);
    return info.dir().filePath(QStringLiteral(".%1.kavot-merge.%2").arg(info.completeBaseName(), info.suffix()));
}

bool syncToDisk(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadWrite))
        return false;
    return ::fsync(f.handle()) == 0;
}

// rename(2) replaces the target in one step: readers see the old file or the new one, never a
// part of either.
bool replaceFile(const QString &from, const QString &to)
{
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool sameContent(const QString &a, const QString &b)
{
    QFile fa(a), fb(b);
    if (!fa.open(QIODevice::ReadOnly) || !fb.open(QIODevice::ReadOnly) || fa.size() != fb.size())
        return false;
    while (!fa.atEnd()) {
        if (fa.read(1 << 20) != fb.read(1 << 20))
            return false;
    }
    return true;
}

} // namespace

QStringList OVManualSyncMerge::mergeArguments(const QString &source, const QString &wav, const QString &output,
                                              int replaceIndex, int streamCount, bool dropDataStreams)
{
    const QString extra = dropDataStreams ? ExtraOptionsNoData : ExtraOptions;
    if (replaceIndex < 0 || replaceIndex >= streamCount)
        return NXFFmpegWrapper::arguments(AddTemplate, { source, wav, extra, output });
    QString line = QStringLiteral("-y -i \"%1\" -i \"%2\" -map 0 -map -0:a");
    for (int i = 0; i < streamCount; ++i)
        line += i == replaceIndex ? QStringLiteral(" -map 1:a") : QStringLiteral(" -map 0:a:") + QString::number(i);
    line += QStringLiteral(" -vcodec copy %3 \"%4\"");
    return NXFFmpegWrapper::arguments(line, { source, wav, extra, output });
}

OVManualSyncMerge::OVManualSyncMerge(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<OV::Error>();
    connect(&m_watcher, &QFutureWatcher<OV::Error>::finished, this, &OVManualSyncMerge::onMergeDone);
    connect(this, &OVManualSyncMerge::actionChanged, this, &OVManualSyncMerge::onActionChanged, Qt::QueuedConnection);
}

OVManualSyncMerge::~OVManualSyncMerge()
{
    cancel();
    m_watcher.disconnect(this);
    m_watcher.waitForFinished();
}

QString OVManualSyncMerge::action() const
{
    QMutexLocker lock(&m_mutex);
    return m_action;
}

void OVManualSyncMerge::setAction(const QString &text)
{
    {
        QMutexLocker lock(&m_mutex);
        m_action = text;
    }
    qCInfo(lcSync) << "OVManualSyncMerge:" << text;
    Q_EMIT actionChanged();
}

void OVManualSyncMerge::onActionChanged()
{
    // The stage text is read from the GUI thread; the progress of a new stage starts busy.
    Q_EMIT progressChanged(0, 0, 0);
}

void OVManualSyncMerge::onFfmpegProgress(qreal percent, quint64 timeremaining)
{
    Q_UNUSED(timeremaining);
    Q_EMIT progressChanged(int(percent * 100.0), 0, 100);
}

void OVManualSyncMerge::cancel()
{
    if (!m_cancel.exchange(true) && isRunning())
        Q_EMIT canceled();
}

bool OVManualSyncMerge::start(const QString &primaryFile, const QString &backupFile, const QString &outputFile,
                              const OVSamples *primary, const OVSamples *aligned, int replaceIndex, int streamCount,
                              bool dropDataStreams, bool keepBackup)
{
    if (isRunning())
        return false;
    m_cancel = false;
    m_watcher.setFuture(QtConcurrent::run(&OVManualSyncMerge::merge, this, primaryFile, backupFile, QString(),
                                          outputFile, primary, aligned, replaceIndex, streamCount,
                                          int(dropDataStreams), int(keepBackup)));
    return true;
}

void OVManualSyncMerge::onMergeDone()
{
    Q_EMIT finished(m_watcher.result());
}

bool OVManualSyncMerge::restoreBackup(const QString &primaryFile, const QString &backupFile,
                                      const QString &partialOutput)
{
    // The tool may still hold its output for a moment after it was killed.
    for (int attempt = 0; attempt < 100 && QFile::exists(partialOutput); ++attempt) {
        if (QFile::remove(partialOutput))
            break;
        QThread::msleep(50);
    }
    if (backupFile.isEmpty() || !QFile::exists(backupFile))
        return true;
    // The tool never writes to the primary file itself; only a primary changed by someone else
    // meanwhile, or lost, is put back.
    if (sameContent(primaryFile, backupFile))
        return true;
    const QString staging = partialPath(primaryFile);
    QFile::remove(staging);
    return QFile::copy(backupFile, staging) && syncToDisk(staging) && replaceFile(staging, primaryFile);
}

bool OVManualSyncMerge::makeBackup(const QString &primaryFile, const QString &backupFile)
{
    if (backupFile.isEmpty())
        return true;
    setAction(QStringLiteral("Creating backup"));
    QFile::remove(backupFile);
    if (QFile::copy(primaryFile, backupFile) && syncToDisk(backupFile))
        return true;
    qCWarning(lcSync) << "OVManualSyncMerge: cannot copy" << primaryFile << "to" << backupFile;
    return false;
}

OV::Error OVManualSyncMerge::merge(const QString &primaryFile, const QString &backupFile, const QString &wavFile,
                                   const QString &outputFile, const OVSamples *primary, const OVSamples *aligned,
                                   int replaceIndex, int streamCount, int dropDataStreams, int keepBackup)
{
    const QString target = outputFile.isEmpty() ? primaryFile : outputFile;
    if (!makeBackup(primaryFile, backupFile))
        return OV::Error(1, QStringLiteral("Failed to create backup file\n") + backupFile);
    if (m_cancel)
        return OV::Error(NXFFmpegWrapper::StoppedByUser, QStringLiteral("Canceled by user"));

    const QString wav = wavFile.isEmpty() ? OVSamplesExtractor::temporaryWavPath() : wavFile;
    setAction(QStringLiteral("Exporting synced stream"));
    if (!aligned || !primary || aligned->sampleRate <= 0
        || !writeWavSamples(aligned->data.data(), nullptr, aligned->count, aligned->sampleRate, wav)) {
        QFile::remove(wav);
        return OV::Error(2, QStringLiteral("Failed to export synced stream"));
    }

    setAction(QStringLiteral("Adding audio stream to primary file"));
    const QString partial = partialPath(target);
    const OV::Error result = runTool(
        mergeArguments(primaryFile, wav, partial, replaceIndex, streamCount, dropDataStreams != 0), primaryFile,
        backupFile, target, keepBackup != 0);
    QFile::remove(wav);
    return result;
}

QStringList OVManualSyncMerge::removalArguments(const QString &source, int audioIndex, const QString &output)
{
    // Copied, not transcoded: the streams that stay are the very ones the user had.
    return NXFFmpegWrapper::arguments(QStringLiteral("-y -i \"%1\" -map 0 -map -0:a:%2 -c copy \"%3\""),
                                      { source, QString::number(audioIndex), output });
}

OV::Error OVManualSyncMerge::removeStream(const QString &primaryFile, const QString &backupFile, int audioIndex,
                                          int keepBackup)
{
    if (audioIndex < 0)
        return OV::Error(3, QStringLiteral("No audio stream to remove"));
    if (!makeBackup(primaryFile, backupFile))
        return OV::Error(1, QStringLiteral("Failed to create backup file\n") + backupFile);
    if (m_cancel)
        return OV::Error(NXFFmpegWrapper::StoppedByUser, QStringLiteral("Canceled by user"));
    setAction(QStringLiteral("Removing audio stream from primary file"));
    return runTool(removalArguments(primaryFile, audioIndex, partialPath(primaryFile)), primaryFile, backupFile,
                   primaryFile, keepBackup != 0);
}

bool OVManualSyncMerge::startRemoval(const QString &primaryFile, const QString &backupFile, int audioIndex,
                                     bool keepBackup)
{
    if (isRunning())
        return false;
    m_cancel = false;
    m_watcher.setFuture(QtConcurrent::run(&OVManualSyncMerge::removeStream, this, primaryFile, backupFile,
                                          audioIndex, int(keepBackup)));
    return true;
}

OV::Error OVManualSyncMerge::runTool(const QStringList &arguments, const QString &primaryFile,
                                     const QString &backupFile, const QString &target, bool keepBackup)
{
    const QString partial = partialPath(target);
    NXFFmpegWrapper ffmpeg;
    if (!m_toolPath.isEmpty())
        ffmpeg.setToolPath(m_toolPath);
    connect(&ffmpeg, &NXFFmpegWrapper::progress, this, &OVManualSyncMerge::onFfmpegProgress, Qt::QueuedConnection);
    ffmpeg.start(arguments);
    while (!ffmpeg.waitForFinished(100)) {
        if (m_cancel)
            ffmpeg.stop();
    }
    const NXFFmpegWrapper::ErrorCode code = m_cancel ? NXFFmpegWrapper::StoppedByUser : ffmpeg.lastError();

    OV::Error result;
    if (code == NXFFmpegWrapper::NoError) {
        if (syncToDisk(partial) && replaceFile(partial, target)) {
            if (!keepBackup && !backupFile.isEmpty())
                QFile::remove(backupFile);
            return OV::Error::success();
        }
        qCWarning(lcSync) << "OVManualSyncMerge: cannot put" << partial << "in place of" << target;
        result = OV::Error(NXFFmpegWrapper::OutputLocked, NXFFmpegWrapper::errorMessage(NXFFmpegWrapper::OutputLocked));
    } else if (code == NXFFmpegWrapper::StoppedByUser) {
        result = OV::Error(code, QStringLiteral("Canceled by user"));
    } else {
        result = OV::Error(code, NXFFmpegWrapper::errorMessage(code));
    }
    if (!backupFile.isEmpty())
        setAction(QStringLiteral("Restoring backup"));
    if (!restoreBackup(primaryFile, backupFile, partial))
        return OV::Error(5, QStringLiteral("Failed to restore backup"));
    return result;
}
