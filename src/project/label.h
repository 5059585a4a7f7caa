#pragma once

#include "project/basenode.h"

#include <QChar>
#include <QColor>
#include <QList>

#include <vector>

namespace OVProject {

class Segment;
class Timeline;

// A coding category with its segments (owned).
//
// Time index: views paint a window of time and ask segmentsInRange(from, to) for every label on
// every repaint, while coding adds segments during playback, so walking every segment per paint
// does not scale to hours of coding. The label keeps, beside its segment list (which stays in the
// order segments were added, the order of the file), an index of (start, end, segment) sorted by
// start, cut into blocks of BlockSize entries with the largest end of each block. A query finds
// the last entry starting at or before `to` by binary search and then visits only the blocks whose
// largest end reaches `from`: segments that ended long ago cost one comparison per block, open
// segments (end OpenEnd) are always found. Adding a segment, or moving one, inserts it at its
// sorted place and refreshes the block maxima behind it (coding appends near the end, so that is
// short); a bulk add (file loading) only marks the index stale and the next query sorts once.
class Label : public BaseNode
{
    Q_OBJECT
public:
    explicit Label(const Id &id = Id(), QObject *parent = nullptr);
    ~Label() override;

    int nodeType() const override { return LabelType; }
    // Copies name, description, colour, key and sort order; the segments and the id stay.
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    QString name() const { return m_name; }
    QString description() const { return m_description; }
    QColor color() const { return m_color; }
    QChar key() const { return m_key; }
    int sortOrder() const { return m_sortOrder; }

    void setName(const QString &name);
    void setDescription(const QString &description);
    void setColor(const QColor &color);
    void setKey(QChar key);
    void setSortOrder(int sortOrder);

    // True when `key` codes this label (keys are compared in upper case).
    bool matchesKey(QChar key) const;

    // Segments in the order they were added.
    const QList<Segment *> &segments() const { return m_segments; }
    int segmentCount() const { return int(m_segments.size()); }
    // Through the timeline's id index while the label belongs to one, by a scan otherwise.
    Segment *segment(const Id &id) const;
    // The last added segment that is still open, or null. A count of open segments answers the
    // common case (none open) without walking the label.
    Segment *openSegment() const;

    // Takes ownership; a segment held by another label is taken from it first.
    void addSegment(Segment *segment);
    // Takes ownership of all of them and announces the change once.
    void addSegments(const QList<Segment *> &segments);
    // Removes and deletes.
    void removeSegment(Segment *segment);
    // Removes without deleting; the caller owns the segment afterwards.
    Segment *takeSegment(Segment *segment);

    // Segments that overlap [from, to] (start <= to and end >= from), ordered by start.
    QList<Segment *> segmentsInRange(double from, double to) const;
    // The same segments with their times as the index holds them: a view drawing thousands of
    // bars reads one compact array instead of touching every segment object.
    struct Span
    {
        double start;
        double end;
        Segment *segment;
    };
    QList<Span> spansInRange(double from, double to) const;

    Timeline *timeline() const;

    // Rebuilds what the time index should hold from the segment list and compares: order, times,
    // every block's largest end, and the count of open segments. A text naming the first
    // difference, empty if none.
    QString checkIndex() const;

Q_SIGNALS:
    void segmentsChanged();
    void changed();
    // Which segment came, changed or went, for observers that must not rescan the label (the
    // journal of changes). Each is followed by segmentsChanged(), as before.
    void segmentAdded(OVProject::Segment *segment);
    void segmentChanged(OVProject::Segment *segment);
    void segmentRemoved(const OVProject::Id &segmentId);

public Q_SLOTS:
    void onSegmentDestroyed();
    void onSegmentChanged();

private:
    friend class Segment;
    friend class Timeline;
    struct IndexEntry
    {
        double start;
        double end;
        Segment *segment;
    };
    static constexpr int BlockSize = 32;

    void attach(Segment *segment);
    void detach(Segment *segment);
    // Called by a segment of this label in its destructor, while its id can still be read.
    void segmentDestroying(Segment *segment);
    void segmentTimesChanged(Segment *segment, double oldStart, double oldEnd);
    void segmentIdChanged(Segment *segment, const Id &oldId);
    void ensureIndex() const;
    template <typename Visit> void visitRange(double from, double to, Visit visit) const;
    void indexInsert(Segment *segment) const;
    void indexRemoveAt(std::size_t pos) const;
    std::size_t indexFind(const Segment *segment, double start) const;
    void refreshBlocks(std::size_t fromPos, std::size_t toPos) const;

    QString m_name;
    QString m_description;
    QColor m_color;
    QChar m_key;
    int m_sortOrder = 0;
    QList<Segment *> m_segments;
    int m_openCount = 0;
    // The timeline whose id index holds this label's segments; set and cleared by that timeline
    // only, so a label merely parented to a timeline never touches its index.
    Timeline *m_idIndexOwner = nullptr;

    mutable std::vector<IndexEntry> m_index;
    mutable std::vector<double> m_blockMaxEnd;
    mutable bool m_indexValid = true;
};

} // namespace OVProject
