#pragma once

#include "project/ovprojectcontainer.h"
#include "project/project.h"
#include "project/storageinterface.h"

#include <QString>
#include <QStringList>

#include <memory>

class QThread;

// Projects in local ".kvpr" files: "project.json", one "timelines/<id>.json" per timeline, and
// entries of other parts (an embedded video, "embvideo_..."), which are carried from the file the
// project came from into every file it is saved to without being read into memory.
//
// Saving writes a temporary file in the target's folder, syncs it to disk and renames it over
// the target, so a failed save never leaves a damaged file; the version it replaces is first
// copied into the project's backup folder (the last BackupsKept versions are kept).
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
    };
    static constexpr int BackupsKept = 5;

    explicit OVLocalFileStorage(const QString &path = QString(), QObject *parent = nullptr);

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

    // Saves `project` with the timelines of its group to `path`; on success path() becomes `path`.
    OV::Error save(const QString &path, OVProject::Project *project);
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

    // The documents of a project file, still as stored (possibly in the envelope), keyed by entry
    // name; entries other than documents are left out. For tools that look at raw files.
    static OV::Error readDocuments(const QString &path, QMap<QString, QByteArray> *documents);

    // Fault injection for tests: the next saves fail after writing this many bytes (-1: never).
    void setWriteFailureAfter(qint64 bytes) { m_failAfter = bytes; }

private:
    static bool isDocumentEntry(const QString &name);
    static bool isVideoEntry(const QString &name);
    static QString loadMessage(const QString &path, const QString &why);
    static OV::Error loadError(const QString &path, const QString &why = QString());
    static OV::Error cancelled();
    static OV::Error readInto(const QString &path, OVReadBudget *budget, QThread *home, ReadResult *result);
    void backupExisting(const QString &path) const;

    QString m_path;
    bool m_compress = true;
    int m_level = 9;
    qint64 m_failAfter = -1;
    // Non-document entries of the file at m_sourcePath, located but not read.
    QString m_sourcePath;
    OVProjectContainer::Form m_sourceForm = OVProjectContainer::UnknownForm;
    OVProjectContainer::Entries m_carried;
    QString m_embedFile;
    bool m_embedChanged = false;
};
