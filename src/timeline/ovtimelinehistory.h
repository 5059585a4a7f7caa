#pragma once

#include "project/basenode.h"
#include "project/project.h"

#include <QColor>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QStringList>

class QUndoStack;

namespace OVProject {
class History;
class HistoryCommand;
class Label;
class Project;
class Segment;
class Timeline;
} // namespace OVProject

// The timeline's requests to change the model. A request either changes the model and leaves one
// step in the project's history (or one part of the open gesture), or returns false / null and
// changes nothing. Steps hold ids and values, never node pointers, since nodes are deleted and
// re-created by undo and redo. This object holds no history of its own: any number of them (one
// per view) push to the same project history.
class OVTimelineHistory : public QObject
{
    Q_OBJECT
public:
    struct SegmentData
    {
        OVProject::Id id;
        OVProject::Id labelId;
        double start = 0.0;
        double end = 0.0;
        QString description;
        QString text;
    };
    struct LabelData
    {
        OVProject::Id id;
        QString name;
        QString description;
        QColor color;
        QChar key;
        int sortOrder = 0;
    };

    explicit OVTimelineHistory(QObject *parent = nullptr);

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    // The project's history, or null without a project.
    OVProject::History *history() const;
    QUndoStack *undoStack() const;

    // Several requests made between these two calls are undone as one step (a drag, a dialog).
    void beginGesture(const QString &text);
    void endGesture();

    // Returns the new segment, or null.
    OVProject::Segment *addSegment(OVProject::Label *label, double start, double end, const QString &description = QString());
    bool setSegmentTimes(OVProject::Segment *segment, double start, double end);
    bool editSegment(OVProject::Segment *segment, double start, double end, const QString &description);
    // Moves the segments into `target` (of the same timeline), keeping their times.
    bool moveSegments(const QList<OVProject::Segment *> &segments, OVProject::Label *target);
    bool removeSegments(const QList<OVProject::Segment *> &segments);

    // Labels of one timeline never share a key: a request that would give a label a key another
    // label of its timeline has is refused. keyConflict() says why, empty when the key is free.
    static QString keyConflict(const OVProject::Timeline *timeline, QChar key, const OVProject::Label *except = nullptr);
    OVProject::Label *addLabel(OVProject::Timeline *timeline, const QString &name, QChar key, const QColor &color, const QString &description = QString());
    bool editLabel(OVProject::Label *label, const QString &name, QChar key, const QColor &color, const QString &description);
    bool removeLabel(OVProject::Label *label);
    bool moveLabel(OVProject::Timeline *timeline, int from, int to);
    // Replaces all labels of the timeline by copies of `labels` (with their segments, under new
    // ids), as one step. A key that an earlier label of `labels` already has is dropped, and
    // `refusedKeys` says so, one sentence per label.
    bool replaceLabels(OVProject::Timeline *timeline, const QList<OVProject::Label *> &labels, QStringList *refusedKeys = nullptr);

    // Model invariants the timeline relies on; a text naming the first broken one, empty if none.
    static QString checkConsistency(const OVProject::Project *project);

    static SegmentData segmentData(const OVProject::Segment *segment);
    static LabelData labelData(const OVProject::Label *label);

private:
    // Gives a node without id a fresh one, so that undo steps can find it again.
    static OVProject::Id ensureId(OVProject::BaseNode *node);

    bool push(OVProject::HistoryCommand *command);
    OVProject::Timeline *timelineOf(OVProject::Label *label) const;
    OVProject::Timeline *ownTimeline(OVProject::Timeline *timeline) const;

    QPointer<OVProject::Project> m_project;
};
