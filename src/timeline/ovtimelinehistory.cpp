#include "timeline/ovtimelinehistory.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QHash>
#include <QSet>
#include <QUndoCommand>
#include <QUndoStack>

using namespace OVProject;

namespace {

using SegmentData = OVTimelineHistory::SegmentData;
using LabelData = OVTimelineHistory::LabelData;

// Base of every step: finds the nodes again by id through the history's current project.
class TimelineCommand : public QUndoCommand
{
public:
    TimelineCommand(OVTimelineHistory *history, const Id &timelineId, const QString &text)
        : QUndoCommand(text)
        , m_history(history)
        , m_timelineId(timelineId)
    {
    }

protected:
    Timeline *timeline() const
    {
        Project *p = m_history->project();
        return p ? p->timelineGroup()->timeline(m_timelineId) : nullptr;
    }
    Label *label(const Id &id) const
    {
        Timeline *t = timeline();
        return t ? t->label(id) : nullptr;
    }
    Segment *segment(const Id &labelId, const Id &segmentId) const
    {
        Label *l = label(labelId);
        return l ? l->segment(segmentId) : nullptr;
    }

    OVTimelineHistory *m_history;
    Id m_timelineId;
};

Segment *makeSegment(const SegmentData &d)
{
    auto *s = new Segment(d.start, d.end, d.id);
    s->setDescription(d.description);
    s->setText(d.text);
    return s;
}

// Adds (or, reversed, removes) a set of segments.
class SegmentSetCommand : public TimelineCommand
{
public:
    SegmentSetCommand(OVTimelineHistory *h, const Id &timelineId, const QList<SegmentData> &segments, bool add, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_segments(segments)
        , m_add(add)
    {
    }
    void redo() override { m_add ? insert() : remove(); }
    void undo() override { m_add ? remove() : insert(); }

private:
    void insert()
    {
        if (m_segments.size() == 1) {
            // Keyboard coding: the label places one segment in its index without a re-sort.
            if (Label *l = label(m_segments.first().labelId))
                l->addSegment(makeSegment(m_segments.first()));
            return;
        }
        QHash<Id, QList<Segment *>> byLabel;
        for (const SegmentData &d : m_segments)
            byLabel[d.labelId].append(makeSegment(d));
        for (auto it = byLabel.begin(); it != byLabel.end(); ++it) {
            if (Label *l = label(it.key()))
                l->addSegments(it.value());
            else
                qDeleteAll(it.value());
        }
    }
    void remove()
    {
        QHash<Id, QSet<Id>> byLabel;
        for (const SegmentData &d : m_segments)
            byLabel[d.labelId].insert(d.id);
        for (auto it = byLabel.cbegin(); it != byLabel.cend(); ++it) {
            Label *l = label(it.key());
            if (!l)
                continue;
            QList<Segment *> doomed;
            for (Segment *s : l->segments()) {
                if (it.value().contains(s->id()))
                    doomed.append(s);
            }
            // Newest first: the label's list is searched from its end.
            for (auto s = doomed.crbegin(); s != doomed.crend(); ++s)
                l->removeSegment(*s);
        }
    }

    QList<SegmentData> m_segments;
    bool m_add;
};

// Changes the times and description of one segment.
class SegmentEditCommand : public TimelineCommand
{
public:
    SegmentEditCommand(OVTimelineHistory *h, const Id &timelineId, const SegmentData &before, const SegmentData &after, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
    {
    }
    void redo() override { apply(m_after); }
    void undo() override { apply(m_before); }

private:
    void apply(const SegmentData &d)
    {
        Segment *s = segment(d.labelId, d.id);
        if (!s)
            return;
        s->setTimes(d.start, d.end);
        s->setDescription(d.description);
    }
    SegmentData m_before;
    SegmentData m_after;
};

// Moves segments between labels of one timeline.
class SegmentMoveCommand : public TimelineCommand
{
public:
    struct Move
    {
        Id segmentId;
        Id from;
        Id to;
    };
    SegmentMoveCommand(OVTimelineHistory *h, const Id &timelineId, const QList<Move> &moves, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_moves(moves)
    {
    }
    void redo() override
    {
        for (const Move &m : m_moves)
            move(m.segmentId, m.from, m.to);
    }
    void undo() override
    {
        for (auto it = m_moves.crbegin(); it != m_moves.crend(); ++it)
            move(it->segmentId, it->to, it->from);
    }

private:
    void move(const Id &segmentId, const Id &from, const Id &to)
    {
        Segment *s = segment(from, segmentId);
        Label *target = label(to);
        if (s && target)
            target->addSegment(s);
    }
    QList<Move> m_moves;
};

void applyLabelFields(Label *l, const LabelData &d)
{
    l->setName(d.name);
    l->setDescription(d.description);
    l->setColor(d.color);
    l->setKey(d.key);
    l->setSortOrder(d.sortOrder);
}

class LabelEditCommand : public TimelineCommand
{
public:
    LabelEditCommand(OVTimelineHistory *h, const Id &timelineId, const LabelData &before, const LabelData &after, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
    {
    }
    void redo() override
    {
        if (Label *l = label(m_after.id))
            applyLabelFields(l, m_after);
    }
    void undo() override
    {
        if (Label *l = label(m_before.id))
            applyLabelFields(l, m_before);
    }

private:
    LabelData m_before;
    LabelData m_after;
};

// Adds (or, reversed, removes) one label together with its segments.
class LabelSetCommand : public TimelineCommand
{
public:
    LabelSetCommand(OVTimelineHistory *h, const Id &timelineId, const LabelData &label, int index, const QList<SegmentData> &segments, bool add, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_label(label)
        , m_index(index)
        , m_segments(segments)
        , m_add(add)
    {
    }
    void redo() override { m_add ? insert() : remove(); }
    void undo() override { m_add ? remove() : insert(); }

private:
    void insert()
    {
        Timeline *t = timeline();
        if (!t)
            return;
        auto *l = new Label(m_label.id);
        applyLabelFields(l, m_label);
        QList<Segment *> segments;
        segments.reserve(m_segments.size());
        for (const SegmentData &d : m_segments)
            segments.append(makeSegment(d));
        l->addSegments(segments);
        t->insertLabel(m_index, l);
    }
    void remove()
    {
        Timeline *t = timeline();
        if (Label *l = t ? t->label(m_label.id) : nullptr)
            t->removeLabel(l);
    }
    LabelData m_label;
    int m_index;
    QList<SegmentData> m_segments;
    bool m_add;
};

class LabelMoveCommand : public TimelineCommand
{
public:
    LabelMoveCommand(OVTimelineHistory *h, const Id &timelineId, int from, int to, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_from(from)
        , m_to(to)
    {
    }
    void redo() override
    {
        Timeline *t = timeline();
        if (!t)
            return;
        m_sortOrders.clear();
        for (Label *l : t->labels())
            m_sortOrders.append(l->sortOrder());
        t->moveLabel(m_from, m_to);
        // The display order is the label order everywhere else (lists, exports): keep them equal.
        for (int i = 0; i < t->labels().size(); ++i)
            t->labels().at(i)->setSortOrder(i);
    }
    void undo() override
    {
        Timeline *t = timeline();
        if (!t)
            return;
        t->moveLabel(m_to, m_from);
        for (int i = 0; i < t->labels().size() && i < m_sortOrders.size(); ++i)
            t->labels().at(i)->setSortOrder(m_sortOrders.at(i));
    }

private:
    int m_from;
    int m_to;
    QList<int> m_sortOrders;
};

} // namespace

OVTimelineHistory::OVTimelineHistory(QObject *parent)
    : QObject(parent)
    , m_stack(new QUndoStack(this))
{
}

void OVTimelineHistory::setProject(Project *project)
{
    m_project = project;
    if (m_macroOpen)
        m_stack->endMacro();
    m_stack->clear();
    m_gestureDepth = 0;
    m_macroOpen = false;
}

void OVTimelineHistory::beginGesture(const QString &text)
{
    if (m_gestureDepth++ == 0)
        m_gestureText = text;
}

void OVTimelineHistory::endGesture()
{
    if (m_gestureDepth == 0)
        return;
    if (--m_gestureDepth == 0 && m_macroOpen) {
        m_macroOpen = false;
        m_stack->endMacro();
    }
}

void OVTimelineHistory::push(QUndoCommand *command)
{
    // The macro opens with its first change so that a gesture that changed nothing leaves no step.
    if (m_gestureDepth > 0 && !m_macroOpen) {
        m_stack->beginMacro(m_gestureText);
        m_macroOpen = true;
    }
    m_stack->push(command);
}

Id OVTimelineHistory::ensureId(BaseNode *node)
{
    if (node->id().isEmpty())
        node->setId(BaseNode::newId());
    return node->id();
}

OVTimelineHistory::SegmentData OVTimelineHistory::segmentData(const Segment *segment)
{
    SegmentData d;
    d.id = segment->id();
    d.labelId = segment->label() ? segment->label()->id() : Id();
    d.start = segment->start();
    d.end = segment->end();
    d.description = segment->description();
    d.text = segment->text();
    return d;
}

OVTimelineHistory::LabelData OVTimelineHistory::labelData(const Label *label)
{
    LabelData d;
    d.id = label->id();
    d.name = label->name();
    d.description = label->description();
    d.color = label->color();
    d.key = label->key();
    d.sortOrder = label->sortOrder();
    return d;
}

static Timeline *timelineOf(Label *label) { return label ? label->timeline() : nullptr; }

Segment *OVTimelineHistory::addSegment(Label *label, double start, double end, const QString &description)
{
    Timeline *t = timelineOf(label);
    if (!m_project || !t || !(start <= end))
        return nullptr;
    SegmentData d;
    d.id = BaseNode::newId();
    d.labelId = ensureId(label);
    d.start = start;
    d.end = end;
    d.description = description;
    push(new SegmentSetCommand(this, ensureId(t), { d }, true, tr("Add segment")));
    Segment *added = label->segments().isEmpty() ? nullptr : label->segments().last();
    return added && added->id() == d.id ? added : nullptr;
}

bool OVTimelineHistory::setSegmentTimes(Segment *segment, double start, double end)
{
    if (!segment)
        return false;
    return editSegment(segment, start, end, segment->description());
}

bool OVTimelineHistory::editSegment(Segment *segment, double start, double end, const QString &description)
{
    Label *l = segment ? segment->label() : nullptr;
    Timeline *t = timelineOf(l);
    if (!m_project || !t || !(start <= end))
        return false;
    if (start == segment->start() && end == segment->end() && description == segment->description())
        return true;
    ensureId(segment);
    ensureId(l);
    SegmentData before = segmentData(segment);
    SegmentData after = before;
    after.start = start;
    after.end = end;
    after.description = description;
    push(new SegmentEditCommand(this, ensureId(t), before, after, tr("Edit segment")));
    return true;
}

bool OVTimelineHistory::moveSegments(const QList<Segment *> &segments, Label *target)
{
    Timeline *t = timelineOf(target);
    if (!m_project || !t)
        return false;
    QList<SegmentMoveCommand::Move> moves;
    for (Segment *s : segments) {
        if (!s || !s->label() || s->label()->timeline() != t)
            return false;
        if (s->label() == target)
            continue;
        moves.append({ ensureId(s), ensureId(s->label()), ensureId(target) });
    }
    if (moves.isEmpty())
        return true;
    push(new SegmentMoveCommand(this, ensureId(t), moves, tr("Move segments")));
    return true;
}

bool OVTimelineHistory::removeSegments(const QList<Segment *> &segments)
{
    if (!m_project || segments.isEmpty())
        return false;
    Timeline *t = nullptr;
    QList<SegmentData> data;
    data.reserve(segments.size());
    for (Segment *s : segments) {
        Timeline *st = s ? timelineOf(s->label()) : nullptr;
        if (!st || (t && st != t))
            return false;
        t = st;
        ensureId(s);
        ensureId(s->label());
        data.append(segmentData(s));
    }
    push(new SegmentSetCommand(this, ensureId(t), data, false, tr("Delete segments")));
    return true;
}

Label *OVTimelineHistory::addLabel(Timeline *timeline, const QString &name, QChar key, const QColor &color, const QString &description)
{
    if (!m_project || !timeline)
        return nullptr;
    LabelData d;
    d.id = BaseNode::newId();
    d.name = name;
    d.description = description;
    d.color = color;
    d.key = key.toUpper();
    d.sortOrder = int(timeline->labels().size());
    push(new LabelSetCommand(this, ensureId(timeline), d, int(timeline->labels().size()), {}, true, tr("Add label")));
    return timeline->label(d.id);
}

bool OVTimelineHistory::editLabel(Label *label, const QString &name, QChar key, const QColor &color, const QString &description)
{
    Timeline *t = timelineOf(label);
    if (!m_project || !t)
        return false;
    LabelData before = labelData(label);
    before.id = ensureId(label);
    LabelData after = before;
    after.name = name;
    after.key = key.toUpper();
    after.color = color;
    after.description = description;
    if (after.name == before.name && after.key == before.key && after.color == before.color && after.description == before.description)
        return true;
    push(new LabelEditCommand(this, ensureId(t), before, after, tr("Edit label")));
    return true;
}

bool OVTimelineHistory::removeLabel(Label *label)
{
    Timeline *t = timelineOf(label);
    if (!m_project || !t)
        return false;
    ensureId(label);
    QList<SegmentData> segments;
    segments.reserve(label->segmentCount());
    for (Segment *s : label->segments()) {
        ensureId(s);
        segments.append(segmentData(s));
    }
    push(new LabelSetCommand(this, ensureId(t), labelData(label), int(t->labels().indexOf(label)), segments, false, tr("Delete label")));
    return true;
}

bool OVTimelineHistory::moveLabel(Timeline *timeline, int from, int to)
{
    if (!m_project || !timeline)
        return false;
    const int n = int(timeline->labels().size());
    if (from < 0 || from >= n || to < 0 || to >= n)
        return false;
    if (from == to)
        return true;
    push(new LabelMoveCommand(this, ensureId(timeline), from, to, tr("Move label")));
    return true;
}

bool OVTimelineHistory::replaceLabels(Timeline *timeline, const QList<Label *> &labels)
{
    if (!m_project || !timeline)
        return false;
    const Id timelineId = ensureId(timeline);
    beginGesture(tr("Replace labels"));
    const QList<Label *> old = timeline->labels();
    for (Label *l : old)
        removeLabel(l);
    int index = 0;
    for (const Label *l : labels) {
        LabelData d = labelData(l);
        d.id = BaseNode::newId();
        d.sortOrder = index;
        QList<SegmentData> segments;
        segments.reserve(l->segmentCount());
        for (const Segment *s : l->segments()) {
            SegmentData sd = segmentData(s);
            sd.id = BaseNode::newId();
            sd.labelId = d.id;
            segments.append(sd);
        }
        push(new LabelSetCommand(this, timelineId, d, index++, segments, true, tr("Add label")));
    }
    endGesture();
    return true;
}

QString OVTimelineHistory::checkConsistency(const Project *project)
{
    if (!project)
        return QString();
    QSet<Id> timelineIds;
    for (const Timeline *t : project->timelineGroup()->timelines()) {
        if (!t->id().isEmpty() && timelineIds.contains(t->id()))
            return QStringLiteral("duplicate timeline id %1").arg(t->id());
        timelineIds.insert(t->id());
        QSet<Id> labelIds;
        QSet<Id> segmentIds;
        for (const Label *l : t->labels()) {
            if (l->timeline() != t)
                return QStringLiteral("label %1 does not know its timeline").arg(l->id());
            if (!l->id().isEmpty() && labelIds.contains(l->id()))
                return QStringLiteral("duplicate label id %1").arg(l->id());
            labelIds.insert(l->id());
            for (const Segment *s : l->segments()) {
                if (s->label() != l)
                    return QStringLiteral("segment %1 does not know its label").arg(s->id());
                if (!(s->start() <= s->end()))
                    return QStringLiteral("segment %1 ends before it starts").arg(s->id());
                if (!s->id().isEmpty() && segmentIds.contains(s->id()))
                    return QStringLiteral("duplicate segment id %1").arg(s->id());
                segmentIds.insert(s->id());
            }
            // The time index must hold exactly the label's segments.
            const QList<Label::Span> indexed = l->spansInRange(-1e300, 1e300);
            if (indexed.size() != l->segments().size())
                return QStringLiteral("label %1 indexes %2 of %3 segments").arg(l->id()).arg(indexed.size()).arg(l->segments().size());
            for (const Label::Span &span : indexed) {
                if (span.segment->label() != l || span.start != span.segment->start() || span.end != span.segment->end())
                    return QStringLiteral("label %1 indexes stale times of segment %2").arg(l->id(), span.segment->id());
            }
        }
    }
    return QString();
}
