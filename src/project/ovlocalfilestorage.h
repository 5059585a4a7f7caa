#pragma once

#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/storageinterface.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QThreadPool>

#include <atomic>
#include <memory>

class OVAtomicFileWriter;
class QIODevice;

namespace OVProject {
class ProjectSnapshot;
}

class QThread;

// Projects in local ".kvpr" files: "project.json", one "timelines/<id>.json" per timeline, and
// entries of other parts (an embedded video, "embvideo_..."), which are carried from the file the
// project came from into every file it is saved to without being read into memory.
//
// Saving writes a temporary file in the target's folder, syncs it to disk and renames it over
// the target, so a failed save never leaves a damaged file; the version it replaces is kept in
// the project's backup folder (the last BackupsKept distinct versions). startSave() takes a
// snapshot of the model and does the rest on a worker, so the window stays responsive.
//
// The file a project was read from stays open: entries carried over are copied from it even when
// another program moved or replaced the file meanwhile, and checked against the digest taken
// when they were read. A file changed on disk since it was read or saved is not overwritten
// unless the caller says so (ChangedOnDisk, then OverwriteChanges).
class OVLocalFileStorage : public OVProject::StorageInterface
{
    Q_OBJECT
public:
    enum ErrorCode {
        SaveFailed = 4,
        // The file cannot be read or is not a project file.
        FileUnreadable = 5,
        // The file is a project file but its content is incomplete or damaged.
        ContentDamaged = 6,
        // The file was changed, replaced or removed by someone else since it was read or last
        // saved; saving again with OverwriteChanges replaces it.
        ChangedOnDisk = 7,
        SaveCancelled = 8,
    };
    enum SaveOption {
        NoSaveOptions = 0,
        OverwriteChanges = 1,
    };
    static constexpr int BackupsKept = 5;

    explicit OVLocalFileStorage(const QString &path = QString(), QObject *parent = nullptr);
    // Waits for a save that is being written; saves not yet started are dropped.
    ~OVLocalFileStorage() override;

    QString path() const { return m_path; }
    void setPath(const QString &path) { m_path = path; }

    // Documents are written in the compressed envelope unless switched off (on by default).
    bool compression() const { return m_compress; }
    void setCompression(bool on) { m_compress = on; }
    // zlib level of the envelope, 9 unless changed.
    int compressionLevel() const { return m_level; }
    void setCompressionLevel(int level) { m_level = level; }

    // StorageInterface, on path().
    OV::Error saveProject(OVProject::Project *project) override;
    OV::Error loadProject(OVProject::Project *target) override;

    // Saves `project` with the timelines of its group to `path` and returns when it is written;
    // on success path() becomes `path`. Messages begin "Failed to save project to:\n<path>"
    // and say why after an empty line.
    OV::Error save(const QString &path, OVProject::Project *project, int options = NoSaveOptions);
    // The same on a worker: takes a snapshot of `project` now and returns a ticket at once;
    // saveFinished() with that ticket follows. A save asked for while another is written waits
    // behind it; several waiting saves to the same file become one (of the newest snapshot),
    // which finishes all their tickets.
    quint64 startSave(const QString &path, const OVProject::Project *project, int options = NoSaveOptions);
    bool isSaving() const { return m_running != nullptr || !m_pending.isEmpty(); }
    // Returns when every save asked for has finished (their signals have been sent).
    void waitForSaves();
    // Stops the save being written (its file stays as it was) and drops those waiting.
    void cancelSaves();
    // Set when the last save worked but the version it replaced could not be backed up.
    QString lastBackupWarning() const { return m_backupWarning; }
    // Resets `target` and loads `path` into it; on failure `target` is untouched and the message
    // names the file, the entry and the check that failed. On success path() becomes `path`.
    OV::Error load(const QString &path, OVProject::Project *target);

    // Loading in two steps, so that the reading can run on a worker: read() may run on any thread
    // (the project it makes is handed to `home`, null: the calling thread), draws from `budget`
    // and stops when the budget is cancelled (error code OVJsonSerializer::Cancelled); adopt()
    // runs on this storage's thread and moves the project read into `target`.
    struct ReadResult
    {
        QString path;
        OV::Error error;
        std::unique_ptr<OVProject::Project> project;
        OVProjectContainer::Entries carried;
        OVProjectContainer::Form form = OVProjectContainer::UnknownForm;
        // The file as it was read, kept open for the entries carried from it (-1: none).
        int sourceFd = -1;
        ~ReadResult();
    };
    static std::shared_ptr<ReadResult> read(const QString &path, OVReadBudget *budget, QThread *home = nullptr);
    OV::Error adopt(const std::shared_ptr<ReadResult> &result, OVProject::Project *target);

    // Embeds the video file in the project file at the next save (entry "embvideo_<file name>"),
    // replacing an embedded video carried from the loaded file. An empty path drops the embedded video.
    void setEmbeddedVideo(const QString &videoFile);
    // Entries carried from the loaded or last saved file (embedded video and the like).
    QStringList carriedEntries() const { return m_carried.keys(); }
    // Copies the embedded video of the current file to `destination`.
    OV::Error extractEmbeddedVideo(const QString &destination) const;

    // The folder holding the backups of every project, and the one of the project at `projectPath`.
    static QString backupFolder();
    static QString backupFolder(const QString &projectPath);
    // Where copies of unsaved work (written when the session ends without asking) go: beside the
    // backups, but never counted or rotated with them.
    static QString recoveryFolder(const QString &projectPath);

    // The documents of a project file, still as stored (possibly in the envelope), keyed by entry
    // name; entries other than documents are left out. For tools that look at raw files.
    static OV::Error readDocuments(const QString &path, QMap<QString, QByteArray> *documents);

Q_SIGNALS:
    // From the worker while a save is written.
    void saveProgress(qint64 written, qint64 total);
    // `backupWarning` is set when the save worked but the replaced version could not be backed up.
    void saveFinished(quint64 ticket, const OV::Error &error, const QString &backupWarning);

protected:
    // The open device the file's bytes go through; called on the thread that writes. Tests put a
    // failing device in between.
    virtual QIODevice *outputDevice(OVAtomicFileWriter *file) const;

private:
    struct Source;
    struct Job;
    struct Outcome;
    struct Running;
    struct Pending
    {
        QList<quint64> tickets;
        QString path;
        std::shared_ptr<const OVProject::ProjectSnapshot> snapshot;
        int options = NoSaveOptions;
    };
    Job prepare(const Pending &request) const;
    Outcome run(const Job &job, const std::atomic<bool> *cancel) const;
    void apply(const Job &job, Outcome &outcome);
    void startNext();
    void finishRunning();
    // Keeps the file just read open as the source of carried entries.
    void rememberSource(const QString &path, int fd, OVProjectContainer::Form form);

    static bool isDocumentEntry(const QString &name);
    static bool isVideoEntry(const QString &name);
    static QString loadMessage(const QString &path, const QString &why);
    static OV::Error loadError(const QString &path, const QString &why = QString());
    static OV::Error cancelled();
    static OV::Error readInto(const QString &path, OVReadBudget *budget, QThread *home, ReadResult *result);

    QString m_path;
    bool m_compress = true;
    int m_level = 9;
    // The file last read or written, and its non-document entries, located but not read.
    std::shared_ptr<const Source> m_source;
    OVProjectContainer::Entries m_carried;
    QString m_embedFile;
    bool m_embedChanged = false;
    // Counts setEmbeddedVideo() calls, so a save that ends does not forget a newer one.
    quint64 m_embedSerial = 0;
    QString m_backupWarning;
    QList<Pending> m_pending;
    std::shared_ptr<Running> m_running;
    std::atomic<bool> m_cancel { false };
    quint64 m_lastTicket = 0;
    QThreadPool m_pool;
};
