#pragma once

#include "project/basenode.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPointer>
#include <QSet>

#include <vector>

class OVTimelineHistory;

namespace OVProject {
class Label;
class Project;
class Segment;
class Timeline;
} // namespace OVProject

// Every segment of the displayed coders' timelines as a row. Edits of cells go through the
// timeline's history requests, so the list and the timeline share one undo history.
//
// Hours of coding give 100,000 segments: the model follows the labels' per-segment signals
// instead of rescanning. A changed segment is one dataChanged(). A segment that goes is marked
// dead at once (its row shows nothing and can no longer be edited, and its pointer is never
// read again), and new segments wait; both are settled in one step when control returns to the
// event loop (or at flush(), or before the next dataChanged()), so an undo of a hundred thousand
// segments costs one reset, not a hundred thousand row removals. A segment that moves to
// another label keeps its row.
class OVSegmentListModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    enum Column { CoderColumn, LabelColumn, KeyColumn, StartColumn, EndColumn, DurationColumn, DescriptionColumn, GroupsColumn, ColumnCount };
    enum Role {
        // Raw values to sort by: seconds as numbers (an open end as Segment::OpenEnd), texts.
        SortRole = Qt::UserRole,
        TimelineIdRole,
        LabelNameRole,
        SegmentIdRole,
        StartRole,
    };

    explicit OVSegmentListModel(QObject *parent = nullptr);
    ~OVSegmentListModel() override;

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    // Times take what OVTimeFormat reads; the label column a label name of the row's timeline,
    // the key column a key. False, and nothing changed, when the value cannot apply.
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;

    // The segment of a row; null for a row whose segment has gone and not yet been settled.
    OVProject::Segment *segment(int row) const;
    // The row of a segment, -1 if it has none (yet).
    int rowOf(const OVProject::Segment *segment) const;
    // Rows that show something: rowCount() less the gone rows not yet settled.
    int liveRowCount() const;
    // Settles the rows of gone segments and adds the rows of new ones now.
    void flush();

    // Deletes the segments of these rows as one step; false, and nothing deleted, when a row
    // cannot be edited.
    bool removeSegments(const QList<int> &rows);

    // Labels of the row's timeline a segment of that row can be moved to, by name.
    QStringList labelChoices(int row) const;

private:
    struct Row
    {
        // Compared, never read, once `alive` is false.
        OVProject::Segment *segment = nullptr;
        OVProject::Label *label = nullptr;
        OVProject::Timeline *timeline = nullptr;
        bool alive = true;
    };
    struct Pending
    {
        OVProject::Segment *segment = nullptr;
        OVProject::Label *label = nullptr;
        bool alive = true;
    };
    struct LabelWatch
    {
        QPointer<OVProject::Label> label;
        OVProject::Timeline *timeline = nullptr;
    };
    using SegmentKey = std::pair<const OVProject::Label *, OVProject::Id>;

    void rebuild();
    void detachAll();
    QList<OVProject::Timeline *> displayedTimelines() const;
    void attachTimeline(OVProject::Timeline *timeline);
    void attachLabel(OVProject::Label *label);
    void detachLabel(OVProject::Label *label);
    void onLabelsChanged(OVProject::Timeline *timeline);
    void onSegmentAdded(OVProject::Label *label, OVProject::Segment *segment);
    void onSegmentChanged(OVProject::Segment *segment);
    void onSegmentRemoved(OVProject::Label *label, const OVProject::Id &id);
    void onLabelSegmentsChanged(OVProject::Label *label);
    void markGone(OVProject::Segment *segment);
    // Every row and waiting segment of `label` whose segment the label no longer holds.
    void markGoneNotIn(OVProject::Label *label);
    void markLabelGone(OVProject::Label *label);
    void scheduleFlush();
    void settle();
    void rowChanged(const OVProject::Segment *segment);
    void columnChanged(int first, int last);
    void groupsChanged(OVProject::Timeline *timeline);
    QString groupsOf(OVProject::Timeline *timeline, const OVProject::Id &segmentId) const;
    bool isEditable(const Row &row) const;

    QPointer<OVProject::Project> m_project;
    OVTimelineHistory *m_requests;
    QList<OVProject::Timeline *> m_timelines;
    QHash<OVProject::Label *, LabelWatch> m_labels;
    // The context of every connection to the shown nodes, so that they all go at once.
    QObject *m_scope = nullptr;

    std::vector<Row> m_rows;
    QHash<const OVProject::Segment *, int> m_rowOf;
    std::vector<Pending> m_pending;
    QHash<const OVProject::Segment *, int> m_pendingOf;
    // A segment announces its removal by id only: this finds it again.
    QHash<SegmentKey, OVProject::Segment *> m_byId;
    // Labels that removed a segment this model could not find by id: rescanned at their next
    // segmentsChanged(), when the segment has left the label's list.
    QSet<OVProject::Label *> m_rescan;
    int m_dead = 0;
    bool m_flushQueued = false;
    // Group names per segment id, per timeline; made when first asked for.
    mutable QHash<const OVProject::Timeline *, QHash<OVProject::Id, QString>> m_groups;
};
