#include "timeline/ovtimelinehistory.h"

#include "project/history.h"
#include "project/historycommand.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

#include <QHash>

#include <algorithm>
#include <cmath>
#include <QSet>
#include <QUndoCommand>
#include <QUndoStack>

using namespace OVProject;

namespace {

using SegmentData = OVTimelineHistory::SegmentData;
using LabelData = OVTimelineHistory::LabelData;

// Base of every timeline step: finds the nodes again by id through the history's project.
class TimelineCommand : public HistoryCommand
{
public:
    TimelineCommand(History *history, const Id &timelineId, const QString &text)
        : HistoryCommand(history, text)
        , m_timelineId(timelineId)
    {
    }

protected:
    Timeline *timeline() const
    {
        Project *p = project();
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
    SegmentSetCommand(History *h, const Id &timelineId, const QList<SegmentData> &segments, bool add, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_segments(segments)
        , m_add(add)
    {
    }

protected:
    bool apply(bool forward) override { return forward == m_add ? insert() : remove(); }

private:
    bool insert()
    {
        // Every label must be there, or nothing is done. (The segments' ids are fresh, and undo
        // took them out: looking for them would cost a scan of the label per coded key.)
        QHash<Id, Label *> labels;
        for (const SegmentData &d : m_segments) {
            Label *l = labels.value(d.labelId);
            if (!l && !(l = label(d.labelId)))
                return false;
            labels.insert(d.labelId, l);
        }
        if (m_segments.size() == 1) {
            // Keyboard coding: the label places one segment in its index without a re-sort.
            labels.value(m_segments.first().labelId)->addSegment(makeSegment(m_segments.first()));
            return true;
        }
        QHash<Id, QList<Segment *>> byLabel;
        for (const SegmentData &d : m_segments)
            byLabel[d.labelId].append(makeSegment(d));
        for (auto it = byLabel.begin(); it != byLabel.end(); ++it)
            labels.value(it.key())->addSegments(it.value());
        return true;
    }
    bool remove()
    {
        // Every segment must be found, or nothing is done. Undoing a coded key comes here: the
        // lookups go through the timeline's id index, not through the label's segments.
        QHash<Id, Label *> labels;
        QList<Segment *> doomed;
        QSet<Segment *> seen;
        doomed.reserve(m_segments.size());
        for (const SegmentData &d : m_segments) {
            Label *l = labels.value(d.labelId);
            if (!l && !(l = label(d.labelId)))
                return false;
            labels.insert(d.labelId, l);
            Segment *s = l->segment(d.id);
            if (!s || seen.contains(s))
                return false;
            seen.insert(s);
            doomed.append(s);
        }
        for (auto s = doomed.crbegin(); s != doomed.crend(); ++s)
            (*s)->label()->removeSegment(*s);
        return true;
    }

    QList<SegmentData> m_segments;
    bool m_add;
};

// Changes the times and description of one segment.
class SegmentEditCommand : public TimelineCommand
{
public:
    SegmentEditCommand(History *h, const Id &timelineId, const SegmentData &before, const SegmentData &after, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
    {
    }

protected:
    bool apply(bool forward) override
    {
        const SegmentData &d = forward ? m_after : m_before;
        Segment *s = segment(d.labelId, d.id);
        if (!s)
            return false;
        s->setTimes(d.start, d.end);
        s->setDescription(d.description);
        return true;
    }

private:
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
    SegmentMoveCommand(History *h, const Id &timelineId, const QList<Move> &moves, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_moves(moves)
    {
    }

protected:
    bool apply(bool forward) override
    {
        QList<QPair<Segment *, Label *>> plan;
        for (const Move &m : m_moves) {
            Segment *s = segment(forward ? m.from : m.to, m.segmentId);
            Label *target = label(forward ? m.to : m.from);
            if (!s || !target)
                return false;
            plan.append({ s, target });
        }
        if (forward) {
            for (const auto &[s, target] : std::as_const(plan))
                target->addSegment(s);
        } else {
            for (auto it = plan.crbegin(); it != plan.crend(); ++it)
                it->second->addSegment(it->first);
        }
        return true;
    }

private:
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
    LabelEditCommand(History *h, const Id &timelineId, const LabelData &before, const LabelData &after, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
    {
    }

protected:
    bool apply(bool forward) override
    {
        const LabelData &d = forward ? m_after : m_before;
        Label *l = label(d.id);
        if (!l)
            return false;
        applyLabelFields(l, d);
        return true;
    }

private:
    LabelData m_before;
    LabelData m_after;
};

// Adds (or, reversed, removes) one label together with its segments.
class LabelSetCommand : public TimelineCommand
{
public:
    LabelSetCommand(History *h, const Id &timelineId, const LabelData &label, int index, const QList<SegmentData> &segments, bool add, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_label(label)
        , m_index(index)
        , m_segments(segments)
        , m_add(add)
    {
    }

protected:
    bool apply(bool forward) override { return forward == m_add ? insert() : remove(); }

private:
    bool insert()
    {
        Timeline *t = timeline();
        if (!t || t->label(m_label.id))
            return false;
        auto *l = new Label(m_label.id);
        applyLabelFields(l, m_label);
        QList<Segment *> segments;
        segments.reserve(m_segments.size());
        for (const SegmentData &d : m_segments)
            segments.append(makeSegment(d));
        l->addSegments(segments);
        t->insertLabel(m_index, l);
        return true;
    }
    bool remove()
    {
        Timeline *t = timeline();
        Label *l = t ? t->label(m_label.id) : nullptr;
        if (!l)
            return false;
        t->removeLabel(l);
        return true;
    }
    LabelData m_label;
    int m_index;
    QList<SegmentData> m_segments;
    bool m_add;
};

class LabelMoveCommand : public TimelineCommand
{
public:
    LabelMoveCommand(History *h, const Id &timelineId, int from, int to, const QString &text)
        : TimelineCommand(h, timelineId, text)
        , m_from(from)
        , m_to(to)
    {
    }

protected:
    bool apply(bool forward) override
    {
        Timeline *t = timeline();
        const int n = t ? int(t->labels().size()) : 0;
        if (!t || m_from >= n || m_to >= n)
            return false;
        if (forward) {
            m_sortOrders.clear();
            for (Label *l : t->labels())
                m_sortOrders.append(l->sortOrder());
            t->moveLabel(m_from, m_to);
            // The display order is the label order everywhere else (lists, exports): keep them equal.
            for (int i = 0; i < n; ++i)
                t->labels().at(i)->setSortOrder(i);
        } else {
            t->moveLabel(m_to, m_from);
            for (int i = 0; i < n && i < m_sortOrders.size(); ++i)
                t->labels().at(i)->setSortOrder(m_sortOrders.at(i));
        }
        return true;
    }

private:
    int m_from;
    int m_to;
    QList<int> m_sortOrders;
};

} // namespace

OVTimelineHistory::OVTimelineHistory(QObject *parent)
    : QObject(parent)
{
}

void OVTimelineHistory::setProject(Project *project) { m_project = project; }

History *OVTimelineHistory::history() const { return m_project ? m_project->history() : nullptr; }

QUndoStack *OVTimelineHistory::undoStack() const { return m_project ? m_project->history()->undoStack() : nullptr; }

void OVTimelineHistory::beginGesture(const QString &text)
{
    if (History *h = history())
        h->beginGesture(text);
}

void OVTimelineHistory::endGesture()
{
    if (History *h = history())
        h->endGesture();
}

bool OVTimelineHistory::push(HistoryCommand *command) { return history()->push(command); }

Id OVTimelineHistory::ensureId(BaseNode *node)
{
    if (node->id().isEmpty())
        node->setId(BaseNode::newId());
    return node->id();
}

Timeline *OVTimelineHistory::timelineOf(Label *label) const
{
    // Only the project's own timelines: a step on another project's node would be refused by the
    // history only after it had dropped the steps that redo could still reach.
    Timeline *t = label ? label->timeline() : nullptr;
    return ownTimeline(t);
}

Timeline *OVTimelineHistory::ownTimeline(Timeline *timeline) const
{
    return m_project && timeline && m_project->timelineGroup()->timelines().contains(timeline) ? timeline : nullptr;
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



static QString labelNamedByKey(const QList<Label *> &labels, QChar key)
{
    for (const Label *l : labels) {
        if (l->matchesKey(key))
            return l->name();
    }
    return QString();
}

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
    if (!push(new SegmentSetCommand(history(), ensureId(t), { d }, true, tr("Add segment"))))
        return nullptr;
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
    return push(new SegmentEditCommand(history(), ensureId(t), before, after, tr("Edit segment")));
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
    return push(new SegmentMoveCommand(history(), ensureId(t), moves, tr("Move segments")));
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
    return push(new SegmentSetCommand(history(), ensureId(t), data, false, tr("Delete segments")));
}

Label *OVTimelineHistory::addLabel(Timeline *timeline, const QString &name, QChar key, const QColor &color, const QString &description)
{
    if (!ownTimeline(timeline) || !keyConflict(timeline, key).isEmpty())
        return nullptr;
    LabelData d;
    d.id = BaseNode::newId();
    d.name = name;
    d.description = description;
    d.color = color;
    d.key = key.toUpper();
    d.sortOrder = int(timeline->labels().size());
    if (!push(new LabelSetCommand(history(), ensureId(timeline), d, int(timeline->labels().size()), {}, true, tr("Add label"))))
        return nullptr;
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
    if (after.key != before.key && !keyConflict(t, after.key, label).isEmpty())
        return false;
    return push(new LabelEditCommand(history(), ensureId(t), before, after, tr("Edit label")));
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
    return push(new LabelSetCommand(history(), ensureId(t), labelData(label), int(t->labels().indexOf(label)), segments, false, tr("Delete label")));
}

bool OVTimelineHistory::moveLabel(Timeline *timeline, int from, int to)
{
    if (!ownTimeline(timeline))
        return false;
    const int n = int(timeline->labels().size());
    if (from < 0 || from >= n || to < 0 || to >= n)
        return false;
    if (from == to)
        return true;
    return push(new LabelMoveCommand(history(), ensureId(timeline), from, to, tr("Move label")));
}

bool OVTimelineHistory::replaceLabels(Timeline *timeline, const QList<Label *> &labels, QStringList *refusedKeys)
{
    if (!ownTimeline(timeline))
        return false;
    const Id timelineId = ensureId(timeline);
    beginGesture(tr("Replace labels"));
    const QList<Label *> old = timeline->labels();
    bool ok = true;
    for (Label *l : old)
        ok = removeLabel(l) && ok;
    int index = 0;
    QSet<QChar> keys;
    for (const Label *l : labels) {
        LabelData d = labelData(l);
        d.id = BaseNode::newId();
        d.sortOrder = index;
        d.key = d.key.toUpper();
        if (!d.key.isNull() && keys.contains(d.key)) {
            // The first label keeps the key, as keyboard coding would have found it first.
            if (refusedKeys)
                refusedKeys->append(tr("\"%1\" loses the key %2, which \"%3\" already uses.").arg(d.name, QString(d.key), labelNamedByKey(labels, d.key)));
            d.key = QChar();
        }
        keys.insert(d.key);
        QList<SegmentData> segments;
        segments.reserve(l->segmentCount());
        for (const Segment *s : l->segments()) {
            SegmentData sd = segmentData(s);
            sd.id = BaseNode::newId();
            sd.labelId = d.id;
            segments.append(sd);
        }
        ok = push(new LabelSetCommand(history(), timelineId, d, index++, segments, true, tr("Add label"))) && ok;
    }
    endGesture();
    return ok;
}

QString OVTimelineHistory::keyConflict(const Timeline *timeline, QChar key, const Label *except)
{
    if (!timeline || key.isNull())
        return QString();
    for (const Label *l : timeline->labels()) {
        if (l != except && l->matchesKey(key))
            return tr("The key %1 is already used by the label \"%2\". Each label of a timeline needs a key of its own.").arg(QString(key.toUpper()), l->name());
    }
    return QString();
}

// Compares the label's range queries with a scan of all its segments, in windows placed where an
// index goes wrong: at each segment's ends (a point query at exactly an end), just around them,
// between neighbours and over everything.
static QString checkQueries(const Label *l)
{
    QList<double> edges;
    for (const Segment *s : l->segments())
        edges << s->start() << s->end();
    std::sort(edges.begin(), edges.end());
    QList<std::pair<double, double>> windows{ { -1e300, 1e300 } };
    // Every edge of a small label; a spread of a few hundred of a large one (the scan is linear).
    const int stride = std::max<int>(1, int(edges.size() / 400));
    for (int i = 0; i < edges.size(); i += stride) {
        const double e = edges.at(i);
        windows << std::pair{ e, e } << std::pair{ std::nextafter(e, 1e308), std::nextafter(e, 1e308) } << std::pair{ e - 0.5, e - 0.25 };
        if (i + 1 < edges.size())
            windows << std::pair{ e, edges.at(i + 1) } << std::pair{ (e + edges.at(i + 1)) / 2, (e + edges.at(i + 1)) / 2 };
    }
    for (const auto &[from, to] : std::as_const(windows)) {
        QSet<const Segment *> expected;
        for (const Segment *s : l->segments()) {
            if (s->start() <= to && s->end() >= from)
                expected.insert(s);
        }
        const QList<Segment *> found = l->segmentsInRange(from, to);
        const QSet<const Segment *> got(found.cbegin(), found.cend());
        if (got != expected || found.size() != expected.size())
            return QStringLiteral("the query %1..%2 finds %3 segments, a scan %4").arg(from, 0, 'g', 17).arg(to, 0, 'g', 17).arg(found.size()).arg(expected.size());
    }
    return QString();
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
            if (const QString index = l->checkIndex(); !index.isEmpty())
                return QStringLiteral("label %1: %2").arg(l->id(), index);
            if (const QString query = checkQueries(l); !query.isEmpty())
                return QStringLiteral("label %1: %2").arg(l->id(), query);
        }
        if (const QString index = t->checkSegmentIndex(); !index.isEmpty())
            return QStringLiteral("timeline %1: %2").arg(t->id(), index);
    }
    return QString();
}
