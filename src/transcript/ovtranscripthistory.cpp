#include "transcript/ovtranscripthistory.h"

#include "project/history.h"
#include "project/historycommand.h"
#include "project/project.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "transcript/ovtranscriptlogging.h"

#include <QHash>
#include <QSet>

#include <cmath>

using namespace OVProject;
using UtteranceData = OVTranscriptHistory::UtteranceData;

namespace {

Utterance *makeUtterance(const UtteranceData &d)
{
    auto *u = new Utterance(d.id);
    u->setSpeaker(d.speaker);
    u->setText(d.text);
    u->setStartTime(d.start);
    u->setEndTime(d.end);
    return u;
}

void applyFields(Utterance *u, const UtteranceData &d)
{
    u->setSpeaker(d.speaker);
    u->setText(d.text);
    u->setStartTime(d.start);
    u->setEndTime(d.end);
}

class TranscriptCommand : public HistoryCommand
{
public:
    TranscriptCommand(History *history, const Id &timelineId, const QString &text)
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

    Id m_timelineId;
};

// Adds (or, reversed, removes) utterances, each at the index it had in the timeline's list, so
// that a removal undone leaves the list as it was.
class UtteranceSetCommand : public TranscriptCommand
{
public:
    struct Entry
    {
        int index;
        UtteranceData data;
    };
    // `entries` in ascending index order.
    UtteranceSetCommand(History *h, const Id &timelineId, const QList<Entry> &entries, bool add, const QString &text)
        : TranscriptCommand(h, timelineId, text)
        , m_entries(entries)
        , m_add(add)
    {
    }

protected:
    bool apply(bool forward) override { return forward == m_add ? insert() : remove(); }

private:
    bool insert()
    {
        Timeline *t = timeline();
        if (!t)
            return false;
        for (const Entry &e : m_entries) {
            if (t->utterance(e.data.id))
                return false;
        }
        QList<QPair<int, Utterance *>> at;
        at.reserve(m_entries.size());
        for (const Entry &e : m_entries)
            at.append({ e.index, makeUtterance(e.data) });
        t->insertUtterances(at);
        return true;
    }
    bool remove()
    {
        Timeline *t = timeline();
        if (!t)
            return false;
        QSet<Id> ids;
        for (const Entry &e : m_entries)
            ids.insert(e.data.id);
        QList<Utterance *> doomed;
        for (Utterance *u : t->utterances()) {
            if (ids.contains(u->id()))
                doomed.append(u);
        }
        if (doomed.size() != m_entries.size())
            return false;
        t->removeUtterances(doomed);
        return true;
    }

    QList<Entry> m_entries;
    bool m_add;
};

class UtteranceEditCommand : public TranscriptCommand
{
public:
    // QUndoStack merges steps by a number shared by their class; no other step of the project uses one.
    static constexpr int TypingStep = 0x7e47;

    UtteranceEditCommand(History *h, const Id &timelineId, const UtteranceData &before, const UtteranceData &after,
        const QString &text, bool typing = false)
        : TranscriptCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
        , m_typing(typing)
    {
    }

    int id() const override { return m_typing ? TypingStep : -1; }

    bool mergeWith(const QUndoCommand *other) override
    {
        // Only keys typed straight after each other into the same utterance: the next key's
        // "before" must be this step's "after", or something else changed it in between.
        const auto *next = dynamic_cast<const UtteranceEditCommand *>(other);
        if (!next || !next->m_typing || next->m_timelineId != m_timelineId || next->m_before != m_after)
            return false;
        m_after = next->m_after;
        return true;
    }

protected:
    bool apply(bool forward) override
    {
        Timeline *t = timeline();
        Utterance *u = t ? t->utterance(m_before.id) : nullptr;
        if (!u)
            return false;
        applyFields(u, forward ? m_after : m_before);
        return true;
    }

private:
    UtteranceData m_before;
    UtteranceData m_after;
    bool m_typing;
};

// The whole transcript of a timeline, before and after (an import, a clear).
class UtteranceReplaceCommand : public TranscriptCommand
{
public:
    UtteranceReplaceCommand(History *h, const Id &timelineId, const QList<UtteranceData> &before,
        const QList<UtteranceData> &after, const QString &text)
        : TranscriptCommand(h, timelineId, text)
        , m_before(before)
        , m_after(after)
    {
    }

protected:
    bool apply(bool forward) override
    {
        Timeline *t = timeline();
        if (!t)
            return false;
        const QList<UtteranceData> &expected = forward ? m_before : m_after;
        const QList<UtteranceData> &wanted = forward ? m_after : m_before;
        // Only the transcript this step was made on is replaced: anything else means the
        // history and the model have parted, and replacing would lose what differs.
        if (t->utterances().size() != expected.size())
            return false;
        for (qsizetype i = 0; i < expected.size(); ++i) {
            if (t->utterances().at(i)->id() != expected.at(i).id)
                return false;
        }
        QList<QPair<int, Utterance *>> at;
        at.reserve(wanted.size());
        for (qsizetype i = 0; i < wanted.size(); ++i)
            at.append({ int(i), makeUtterance(wanted.at(i)) });
        {
            // One announcement for the exchange, not one for the removal and one for the insertion.
            const QSignalBlocker quiet(t);
            t->removeUtterances(t->utterances());
            t->insertUtterances(at);
        }
        Q_EMIT t->utterancesChanged();
        return true;
    }

private:
    QList<UtteranceData> m_before;
    QList<UtteranceData> m_after;
};

} // namespace

OVTranscriptHistory::OVTranscriptHistory(QObject *parent)
    : QObject(parent)
{
}

void OVTranscriptHistory::setProject(Project *project) { m_project = project; }

History *OVTranscriptHistory::history() const { return m_project ? m_project->history() : nullptr; }

bool OVTranscriptHistory::validTimes(double start, double end)
{
    return std::isfinite(start) && std::isfinite(end) && start >= 0.0 && start <= end;
}

Timeline *OVTranscriptHistory::ownTimeline(Timeline *timeline) const
{
    // A step on another project's node would be refused by the history only after it had
    // dropped the steps that redo could still reach.
    return m_project && timeline && m_project->timelineGroup()->timelines().contains(timeline) ? timeline : nullptr;
}

Timeline *OVTranscriptHistory::timelineOf(const Utterance *utterance) const
{
    return utterance ? ownTimeline(qobject_cast<Timeline *>(utterance->parent())) : nullptr;
}

bool OVTranscriptHistory::push(HistoryCommand *command)
{
    const bool ok = history()->push(command);
    if (!ok)
        qCWarning(lcTranscript) << "Transcript step refused";
    return ok;
}

static Id ensureId(BaseNode *node)
{
    if (node->id().isEmpty())
        node->setId(BaseNode::newId());
    return node->id();
}

UtteranceData OVTranscriptHistory::utteranceData(const Utterance *utterance)
{
    UtteranceData d;
    d.id = utterance->id();
    d.speaker = utterance->speaker();
    d.text = utterance->text();
    d.start = utterance->startTime();
    d.end = utterance->endTime();
    return d;
}

QList<UtteranceData> OVTranscriptHistory::utteranceData(const Timeline *timeline)
{
    QList<UtteranceData> all;
    if (!timeline)
        return all;
    all.reserve(timeline->utterances().size());
    for (const Utterance *u : timeline->utterances())
        all.append(utteranceData(u));
    return all;
}

Utterance *OVTranscriptHistory::addUtterance(Timeline *timeline, double start, double end, const QString &speaker,
    const QString &text)
{
    Timeline *t = ownTimeline(timeline);
    if (!t || !validTimes(start, end))
        return nullptr;
    UtteranceData d;
    d.id = BaseNode::newId();
    d.speaker = speaker;
    d.text = text;
    d.start = start;
    d.end = end;
    const int index = int(t->utterances().size());
    if (!push(new UtteranceSetCommand(history(), ensureId(t), { { index, d } }, true, tr("Add utterance"))))
        return nullptr;
    return t->utterance(d.id);
}

bool OVTranscriptHistory::editUtterance(Utterance *utterance, double start, double end, const QString &speaker,
    const QString &text)
{
    Timeline *t = timelineOf(utterance);
    if (!t || !validTimes(start, end))
        return false;
    ensureId(utterance);
    const UtteranceData before = utteranceData(utterance);
    UtteranceData after = before;
    after.start = start;
    after.end = end;
    after.speaker = speaker;
    after.text = text;
    if (after == before)
        return true;
    return push(new UtteranceEditCommand(history(), ensureId(t), before, after, tr("Edit utterance")));
}

bool OVTranscriptHistory::typeUtteranceText(Utterance *utterance, const QString &text)
{
    Timeline *t = timelineOf(utterance);
    if (!t)
        return false;
    ensureId(utterance);
    const UtteranceData before = utteranceData(utterance);
    UtteranceData after = before;
    after.text = text;
    if (after == before)
        return true;
    return push(new UtteranceEditCommand(history(), ensureId(t), before, after, tr("Type utterance"), true));
}

bool OVTranscriptHistory::setUtteranceText(Utterance *utterance, const QString &text)
{
    if (!utterance)
        return false;
    return editUtterance(utterance, utterance->startTime(), utterance->endTime(), utterance->speaker(), text);
}

bool OVTranscriptHistory::removeUtterances(const QList<Utterance *> &utterances)
{
    if (utterances.isEmpty())
        return false;
    Timeline *t = nullptr;
    QSet<const Utterance *> doomed;
    for (Utterance *u : utterances) {
        Timeline *ut = timelineOf(u);
        if (!ut || (t && ut != t))
            return false;
        t = ut;
        doomed.insert(u);
    }
    QList<UtteranceSetCommand::Entry> entries;
    entries.reserve(doomed.size());
    const QList<Utterance *> &all = t->utterances();
    for (qsizetype i = 0; i < all.size(); ++i) {
        if (doomed.contains(all.at(i))) {
            ensureId(all.at(i));
            entries.append({ int(i), utteranceData(all.at(i)) });
        }
    }
    const QString text = entries.size() == 1 ? tr("Delete utterance") : tr("Delete %n utterances", nullptr, int(entries.size()));
    return push(new UtteranceSetCommand(history(), ensureId(t), entries, false, text));
}

bool OVTranscriptHistory::replaceUtterances(Timeline *timeline, const QList<UtteranceData> &utterances,
    const QString &stepText)
{
    Timeline *t = ownTimeline(timeline);
    if (!t)
        return false;
    QList<UtteranceData> after = utterances;
    QSet<Id> ids;
    for (UtteranceData &d : after) {
        if (!validTimes(d.start, d.end))
            return false;
        // Ids from a file are not trusted to be unique in this project.
        if (d.id.isEmpty() || ids.contains(d.id))
            d.id = BaseNode::newId();
        ids.insert(d.id);
    }
    for (Utterance *u : t->utterances())
        ensureId(u);
    const QList<UtteranceData> before = utteranceData(t);
    if (before.isEmpty() && after.isEmpty())
        return true;
    return push(new UtteranceReplaceCommand(history(), ensureId(t), before, after, stepText));
}

bool OVTranscriptHistory::clearTranscript(Timeline *timeline)
{
    return replaceUtterances(timeline, {}, tr("Clear transcript"));
}

QString OVTranscriptHistory::checkConsistency(const Project *project)
{
    if (!project)
        return QString();
    QSet<Id> ids;
    for (const Timeline *t : project->timelineGroup()->timelines()) {
        for (const Utterance *u : t->utterances()) {
            if (u->parent() != t)
                return QStringLiteral("utterance %1 does not belong to its timeline").arg(u->id());
            if (u->id().isEmpty() || ids.contains(u->id()))
                return QStringLiteral("utterance id %1 is empty or not unique").arg(u->id());
            ids.insert(u->id());
            if (!(u->startTime() <= u->endTime()))
                return QStringLiteral("utterance %1 ends before it starts").arg(u->id());
        }
    }
    return QString();
}
