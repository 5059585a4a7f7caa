#pragma once

#include "log/overror.h"
#include "project/basenode.h"
#include "project/ovjournalfile.h"

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class OVLocalFileStorage;

namespace OVProject {
class Label;
class Project;
class Segment;
class SegmentGroup;
class Timeline;
class Utterance;
}

// Every change of the open project, written the moment it happens as one small record of the
// node that changed (a segment, a label, a timeline's own fields and label order, an utterance,
// a segment group, the project header), so that a session that dies - killed, crashed, the
// power gone - loses nothing that was on the screen.
//
// The journal starts from a base: the file the project was loaded from or last saved to, or,
// for a project never saved (or one recovered from an earlier journal), the whole content
// written as records first. Recovery loads the base and applies the records in order; nodes are
// found by id, so the journal does not care which view or which undo step made a change. A save
// rebases the journal on the saved file, keeping the records made after the saved snapshot.
//
// It only observes the model: it never changes it and nobody has to tell it about a change.
class OVProjectJournal : public QObject
{
    Q_OBJECT
public:
    struct Summary
    {
        // The saved file the changes apply to; empty when the project was never saved.
        QString basePath;
        // Size and time of the base file when the journal began; the file may have changed since.
        qint64 baseSize = -1;
        QDateTime baseModified;
        // A copy written when the session was ended by the system; recovery starts from it.
        QString recoveryCopy;
        QString projectTitle;
        // Changes made since the base (records that are not the base's own content).
        int changes = 0;
        // The content the journal began with was taken back from an earlier journal: it is unsaved
        // work even before any change.
        bool unsavedContent = false;
        QDateTime started;
        QDateTime lastChange;
        // Bytes of a torn or damaged end, which were ignored.
        qint64 ignoredBytes = 0;
        // Where the recording stood last, in seconds; negative when the journal never heard.
        double position = -1.0;
        // True when the base file is not as it was when the journal began.
        bool baseChanged() const;
    };

    explicit OVProjectJournal(QObject *parent = nullptr);
    ~OVProjectJournal() override;

    // Starts a new journal at `journalPath` for `project`, whose saved form is `basePath` (empty:
    // never saved). With `writeContent` the project's whole content goes into the journal first,
    // so that the journal alone rebuilds it.
    OV::Error start(const QString &journalPath, OVProject::Project *project, const QString &basePath,
                    bool writeContent);
    // Stops observing and closes the file, which stays where it is.
    void stop();
    // stop(), and the file is removed: its changes are saved or were given up by the user.
    void discard();
    bool isActive() const { return m_project != nullptr; }
    QString journalPath() const { return m_path; }

    // The project was saved to `basePath` as it was when lastSequence() returned `savedUpTo`:
    // the journal starts again from that file and keeps the records made after the snapshot.
    OV::Error rebase(const QString &basePath, quint64 savedUpTo);
    // The project was also written to `path` (the copy made when the session is ended from outside).
    void noteRecoveryCopy(const QString &path);
    // The project was taken back from an earlier journal and is in no file yet: if this session
    // ends without saving too, the work is offered again even when nothing more was changed.
    void noteTakenBack();
    // The recording stands at `seconds`: a session taken back starts its video there. No change
    // of the project, and carried over by rebase().
    void notePosition(double seconds);

    quint64 lastSequence() const { return m_file.lastSequence(); }
    // Changes recorded since the base.
    int changeCount() const { return m_changes; }
    // Waits until the journal is on the disk.
    bool syncNow() { return m_file.syncNow(); }

    // What the journal at `path` holds, without loading anything.
    static OV::Error readSummary(const QString &path, Summary *summary);
    // Rebuilds into `target` (reset first) the project the journal at `path` describes. The saved
    // file it starts from is loaded through `storage` when given (so that it carries the file's
    // other entries into the next save).
    static OV::Error recover(const QString &path, OVProject::Project *target, Summary *summary = nullptr,
                             OVLocalFileStorage *storage = nullptr);

    // Applies records[from..] to `target`, nodes found by id; returns how many were not understood
    // (skipped). The records may come from anywhere: nothing in them is trusted.
    static int applyRecords(const QList<OVJournalFile::Record> &records, int from, OVProject::Project *target);

Q_SIGNALS:
    // A record could not be written; the journal stops. Emitted once.
    void writeFailed(const QString &message);

private:
    struct TimelineWatch
    {
        QPointer<OVProject::Timeline> timeline;
        QHash<OVProject::Id, QPointer<OVProject::Label>> labels;
        QHash<OVProject::Id, QPointer<OVProject::Utterance>> utterances;
        QHash<OVProject::Id, QPointer<OVProject::SegmentGroup>> groups;
        QStringList labelOrder;
        QStringList hidden[4];
    };

    void write(const QJsonObject &record, bool isChange = true);
    void writeHeader();
    void writeTimeline(TimelineWatch &watch, bool withBinaryData);
    void writeLabel(OVProject::Label *label);
    void writeSegment(OVProject::Segment *segment);
    void writeUtterance(OVProject::Timeline *timeline, OVProject::Utterance *utterance);
    void writeGroup(OVProject::Timeline *timeline, OVProject::SegmentGroup *group);

    void attachProject(bool writeContent);
    void syncTimelines();
    void attachTimeline(OVProject::Timeline *timeline, bool writeTree);
    void attachLabel(OVProject::Label *label);
    void detachTimeline(TimelineWatch &watch);
    void syncLabels(const OVProject::Id &timelineId);
    void syncUtterances(const OVProject::Id &timelineId);
    void syncGroups(const OVProject::Id &timelineId);
    template <typename Node>
    void syncChildren(const OVProject::Id &timelineId, QHash<OVProject::Id, QPointer<Node>> &known,
                      const QList<Node *> &now, const QString &goneType,
                      void (OVProjectJournal::*writeOne)(OVProject::Timeline *, Node *));
    void syncHidden(const OVProject::Id &timelineId);
    void detachAll();

    OVJournalFile m_file;
    QString m_path;
    QPointer<OVProject::Project> m_project;
    QHash<OVProject::Id, TimelineWatch> m_timelines;
    // Every connection of the journal to the model has this as its context: deleting it cuts them all.
    std::unique_ptr<QObject> m_scope;
    int m_changes = 0;
    bool m_failed = false;
    double m_position = -1.0;
    // Records collected while the content is written, instead of appended one by one.
    QList<QByteArray> *m_batch = nullptr;
};
