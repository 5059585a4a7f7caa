#pragma once

#include "log/overror.h"

#include <QFutureWatcher>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>

struct OVSamples;

// Adds the aligned secondary track to the primary media file as an audio stream, through the
// ffmpeg tool, on a pool thread. The tool writes a temporary file beside the target, which replaces
// the target only once it is complete: the primary recording is whole at every moment, also when
// the application is killed midway. A backup copy is made first when asked for and put back if
// the primary is found changed after a failure.
class OVManualSyncMerge : public QObject
{
    Q_OBJECT

public:
    // The ffmpeg argument line. With replaceIndex and streamCount both -1 the new stream is added
    // after all others; with 0 <= replaceIndex < streamCount it takes the place of that audio
    // stream and the others keep their order. dropDataStreams also leaves data streams out.
    static QStringList mergeArguments(const QString &source, const QString &wav, const QString &output,
                                      int replaceIndex, int streamCount, bool dropDataStreams);

    explicit OVManualSyncMerge(QObject *parent = nullptr);
    ~OVManualSyncMerge() override;

    // Overrides where the ffmpeg tool is looked for.
    void setToolPath(const QString &path) { m_toolPath = path; }

    // The worker. `wavFile` may be empty (a temporary file is used); `outputFile` empty or equal
    // to `primaryFile` rewrites the primary file. dropDataStreams: non-zero leaves data streams
    // out; keepBackup: zero removes the backup after a successful merge.
    OV::Error merge(const QString &primaryFile, const QString &backupFile, const QString &wavFile,
                    const QString &outputFile, const OVSamples *primary, const OVSamples *aligned,
                    int replaceIndex, int streamCount, int dropDataStreams, int keepBackup);

    // merge() on a pool thread; finished() follows. The buffers must outlive the run.
    bool start(const QString &primaryFile, const QString &backupFile, const QString &outputFile,
               const OVSamples *primary, const OVSamples *aligned, int replaceIndex, int streamCount,
               bool dropDataStreams = false, bool keepBackup = true);
    // The tool's line that copies everything of `source` but its audio stream `audioIndex`.
    static QStringList removalArguments(const QString &source, int audioIndex, const QString &output);
    // Rewrites the primary file without its nth audio stream, with the same backup and
    // replacement rules as merge().
    OV::Error removeStream(const QString &primaryFile, const QString &backupFile, int audioIndex, int keepBackup);
    // removeStream() on a pool thread; finished() follows.
    bool startRemoval(const QString &primaryFile, const QString &backupFile, int audioIndex, bool keepBackup = true);

    bool isRunning() const { return m_watcher.isRunning(); }
    // The worker stops the tool within 100 ms and restores the primary file.
    void cancel();
    // The stage the worker is in ("Creating backup", ...).
    QString action() const;

Q_SIGNALS:
    void actionChanged();
    void canceled();
    void progressChanged(int value, int minimum, int maximum);
    void finished(OV::Error error);

private Q_SLOTS:
    void onActionChanged();
    void onFfmpegProgress(qreal percent, quint64 timeremaining);
    void onMergeDone();

private:
    void setAction(const QString &text);
    bool makeBackup(const QString &primaryFile, const QString &backupFile);
    // Runs the tool, whose output goes beside `target`, and puts that output in place of
    // `target`; on failure restores the primary from the backup.
    OV::Error runTool(const QStringList &arguments, const QString &primaryFile, const QString &backupFile,
                      const QString &target, bool keepBackup);
    bool restoreBackup(const QString &primaryFile, const QString &backupFile, const QString &partialOutput);

    QString m_toolPath;
    std::atomic<bool> m_cancel { false };
    mutable QMutex m_mutex;
    QString m_action; // guarded by m_mutex
    QFutureWatcher<OV::Error> m_watcher;
};
