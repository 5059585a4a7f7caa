#include "project/ovprojectjournal.h"

#include "project/label.h"
#include "project/ovlocalfilestorage.h"
#include "project/ovprojectlogging.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <QDebug>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QSet>

#include <cmath>

using namespace OVProject;

namespace {

// Record types. Short, because a coding session writes thousands of them.
const QString kBase = QStringLiteral("B");
const QString kContentEnd = QStringLiteral("C");
const QString kRecoveryCopy = QStringLiteral("R");
const QString kTakenBack = QStringLiteral("K");
const QString kPosition = QStringLiteral("P");
const QString kHeader = QStringLiteral("H");
const QString kTimeline = QStringLiteral("T");
const QString kTimelineGone = QStringLiteral("TD");
const QString kLabel = QStringLiteral("L");
const QString kLabelGone = QStringLiteral("LD");
const QString kSegment = QStringLiteral("S");
const QString kSegmentGone = QStringLiteral("SD");
const QString kUtterance = QStringLiteral("U");
const QString kUtteranceGone = QStringLiteral("UD");
const QString kGroup = QStringLiteral("G");
const QString kGroupGone = QStringLiteral("GD");

QJsonArray toArray(const QStringList &list) { return QJsonArray::fromStringList(list); }

QStringList toStringList(const QJsonValue &value)
{
    QStringList list;
    for (const QJsonValue &v : value.toArray())
        list << v.toString();
    return list;
}

QStringList hiddenList(const Timeline *t, int which)
{
    switch (which) {
    case 0: return t->hiddenSegments();
    case 1: return t->hiddenLabels();
    case 2: return t->hiddenUtterances();
    default: return t->hiddenUtteranceUsers();
    }
}

const char *const kHiddenKeys[4] = { "hs", "hl", "hu", "huu" };

QStringList labelIds(const Timeline *t)
{
    QStringList ids;
    ids.reserve(t->labels().size());
    for (const Label *l : t->labels())
        ids << l->id();
    return ids;
}

QJsonObject parse(const QByteArray &payload)
{
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(payload, &error);
    return doc.isObject() ? doc.object() : QJsonObject();
}

// A position from outside is only taken when it is one the player could be asked for.
double positionOf(const QJsonObject &record, double otherwise)
{
    const QJsonValue value = record.value(QLatin1String("pos"));
    const double seconds = value.toDouble(-1.0);
    return value.isDouble() && std::isfinite(seconds) && seconds >= 0.0 ? seconds : otherwise;
}

QDateTime timeOf(const QJsonObject &record)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(record.value(QLatin1String("at")).toDouble()));
}

// Applies records to a project, finding nodes by id. Segments are looked up through one table
// for the whole project: a label's own lookup walks its list, and replaying thousands of records
// against thousands of segments that way would take minutes.
class Replay
{
public:
    explicit Replay(Project *project)
        : m_project(project)
    {
        for (Timeline *t : project->timelineGroup()->timelines())
            indexTimeline(t);
    }

    // False for a record this version does not know; it is skipped.
    bool apply(const QJsonObject &r)
    {
        const QString type = r.value(QLatin1String("t")).toString();
        if (type == kHeader)
            applyHeader(r);
        else if (type == kTimeline)
            applyTimeline(r);
        else if (type == kTimelineGone)
            removeTimeline(r);
        else if (type == kLabel)
            applyLabel(r);
        else if (type == kLabelGone)
            removeLabel(r);
        else if (type == kSegment)
            applySegment(r);
        else if (type == kSegmentGone)
            removeSegment(r);
        else if (type == kUtterance)
            applyUtterance(r);
        else if (type == kUtteranceGone)
            removeUtterance(r);
        else if (type == kGroup)
            applyGroup(r);
        else if (type == kGroupGone)
            removeGroup(r);
        else
            return type == kBase || type == kContentEnd || type == kRecoveryCopy || type == kTakenBack
                || type == kPosition;
        return true;
    }

private:
    static QString str(const QJsonObject &r, const char *key) { return r.value(QLatin1String(key)).toString(); }
    static double num(const QJsonObject &r, const char *key) { return r.value(QLatin1String(key)).toDouble(); }

    void indexTimeline(Timeline *t)
    {
        for (Label *l : t->labels())
            forgetOrIndex(l, true);
    }
    void forgetOrIndex(Label *l, bool index)
    {
        for (Segment *s : l->segments()) {
            if (index)
                m_segments.insert(s->id(), s);
            else
                m_segments.remove(s->id());
        }
    }
    Timeline *timeline(const QJsonObject &r) const { return m_project->timelineGroup()->timeline(str(r, "tl")); }

    void applyHeader(const QJsonObject &r)
    {
        Project *p = m_project;
        p->setId(str(r, "id"));
        p->setProjectType(r.value(QLatin1String("type")).toInt());
        p->setMaxTextWidth(r.value(QLatin1String("maxw")).toInt(Project::NoTextWidthLimit));
        p->setOnlineId(qint64(num(r, "online")));
        p->setTitle(str(r, "title"));
        p->setDescription(str(r, "desc"));
        p->setVideoId(r.value(QLatin1String("videoId")).toInt(-1));
        p->setVideoPath(str(r, "video"));
        p->setVideoLength(num(r, "videoLen"));
        p->setUseRelativePath(r.value(QLatin1String("rel")).toBool(true));
        p->setTimelineIds(toStringList(r.value(QLatin1String("tlids"))));
        p->setOwner(str(r, "owner"));
        p->setOfflineUser(str(r, "offline"));
    }

    void applyTimeline(const QJsonObject &r)
    {
        const Id id = str(r, "id");
        Timeline *t = m_project->timelineGroup()->timeline(id);
        if (!t) {
            t = new Timeline(id);
            m_project->timelineGroup()->addTimeline(t);
        }
        t->setOwner(str(r, "owner"));
        t->setBlind(r.value(QLatin1String("blind")).toBool());
        t->setHiddenSegments(toStringList(r.value(QLatin1String("hs"))));
        t->setHiddenLabels(toStringList(r.value(QLatin1String("hl"))));
        t->setHiddenUtterances(toStringList(r.value(QLatin1String("hu"))));
        t->setHiddenUtteranceUsers(toStringList(r.value(QLatin1String("huu"))));
        if (r.contains(QLatin1String("bin"))) {
            const QJsonObject bin = r.value(QLatin1String("bin")).toObject();
            for (const QString &key : t->binaryData().keys()) {
                if (!bin.contains(key))
                    t->removeBinaryData(key);
            }
            for (auto it = bin.begin(); it != bin.end(); ++it)
                t->setBinaryData(it.key(), QByteArray::fromBase64(it.value().toString().toLatin1()));
        }
        const QStringList order = toStringList(r.value(QLatin1String("labels")));
        int to = 0;
        for (const QString &labelId : order) {
            const int from = int(t->labels().indexOf(t->label(labelId)));
            if (from < 0)
                continue;
            if (from != to)
                t->moveLabel(from, to);
            ++to;
        }
    }

    void removeTimeline(const QJsonObject &r)
    {
        if (Timeline *t = m_project->timelineGroup()->timeline(str(r, "id"))) {
            for (Label *l : t->labels())
                forgetOrIndex(l, false);
            m_project->timelineGroup()->removeTimeline(t);
        }
    }

    void applyLabel(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (!t)
            return;
        const Id id = str(r, "id");
        Label *l = t->label(id);
        if (!l) {
            l = new Label(id);
            t->addLabel(l);
        }
        l->setName(str(r, "name"));
        l->setDescription(str(r, "desc"));
        l->setColor(QColor::fromRgba(QRgb(quint32(num(r, "color")))));
        l->setKey(QChar(char16_t(r.value(QLatin1String("key")).toInt())));
        l->setSortOrder(r.value(QLatin1String("order")).toInt());
    }

    void removeLabel(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (Label *l = t ? t->label(str(r, "id")) : nullptr) {
            forgetOrIndex(l, false);
            t->removeLabel(l);
        }
    }

    void applySegment(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        Label *l = t ? t->label(str(r, "l")) : nullptr;
        if (!l)
            return;
        const Id id = str(r, "id");
        Segment *s = m_segments.value(id);
        if (!s) {
            s = new Segment(num(r, "s"), num(r, "e"), id);
            s->setDescription(str(r, "d"));
            s->setText(str(r, "x"));
            l->addSegment(s);
            m_segments.insert(id, s);
            return;
        }
        if (s->label() != l)
            l->addSegment(s);
        s->setTimes(num(r, "s"), num(r, "e"));
        s->setDescription(str(r, "d"));
        s->setText(str(r, "x"));
    }

    void removeSegment(const QJsonObject &r)
    {
        if (Segment *s = m_segments.take(str(r, "id")).data()) {
            if (Label *l = s->label())
                l->removeSegment(s);
            else
                delete s;
        }
    }

    void applyUtterance(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (!t)
            return;
        const Id id = str(r, "id");
        Utterance *u = t->utterance(id);
        const bool added = !u;
        if (added)
            u = new Utterance(id);
        u->setText(str(r, "text"));
        u->setSpeaker(str(r, "spk"));
        u->setStartTime(num(r, "s"));
        u->setEndTime(num(r, "e"));
        if (added)
            t->addUtterance(u);
    }

    void removeUtterance(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (Utterance *u = t ? t->utterance(str(r, "id")) : nullptr)
            t->removeUtterance(u);
    }

    void applyGroup(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (!t)
            return;
        const Id id = str(r, "id");
        SegmentGroup *g = t->segmentGroup(id);
        const bool added = !g;
        if (added)
            g = new SegmentGroup(id);
        g->setName(str(r, "name"));
        g->setSegmentIds(toStringList(r.value(QLatin1String("segs"))));
        if (added)
            t->addSegmentGroup(g);
    }

    void removeGroup(const QJsonObject &r)
    {
        Timeline *t = timeline(r);
        if (SegmentGroup *g = t ? t->segmentGroup(str(r, "id")) : nullptr)
            t->removeSegmentGroup(g);
    }

    Project *m_project;
    // Guarded: a damaged journal can take a segment away by a path that does not pass through
    // forgetOrIndex() (its label or timeline replaced or deleted), and a later record naming it
    // must then find nothing rather than freed memory.
    QHash<Id, QPointer<Segment>> m_segments;
};

} // namespace

bool OVProjectJournal::Summary::baseChanged() const
{
    if (basePath.isEmpty())
        return false;
    const QFileInfo info(basePath);
    return !info.exists() || info.size() != baseSize || info.lastModified() != baseModified;
}

OVProjectJournal::OVProjectJournal(QObject *parent)
    : QObject(parent)
{
}

OVProjectJournal::~OVProjectJournal() { stop(); }

OV::Error OVProjectJournal::start(const QString &journalPath, Project *project, const QString &basePath, bool writeContent)
{
    stop();
    m_path = journalPath;
    m_changes = 0;
    m_failed = false;
    m_position = -1.0;
    QJsonObject base { { QStringLiteral("t"), kBase },
                       { QStringLiteral("at"), double(QDateTime::currentMSecsSinceEpoch()) },
                       { QStringLiteral("base"), basePath },
                       { QStringLiteral("content"), writeContent && project },
                       { QStringLiteral("title"), project ? project->title() : QString() } };
    if (!basePath.isEmpty()) {
        const QFileInfo info(basePath);
        base.insert(QStringLiteral("size"), double(info.size()));
        base.insert(QStringLiteral("mtime"), double(info.lastModified().toMSecsSinceEpoch()));
    }
    const QByteArray payload = QJsonDocument(base).toJson(QJsonDocument::Compact);
    const OV::Error error = m_file.create(journalPath, { { 1, payload } }, 2);
    if (!error.isOk()) {
        qCWarning(lcProject).noquote() << "Journal:" << error.message();
        return error;
    }
    m_project = project;
    if (!project)
        return OV::Error();
    attachProject(writeContent);
    qCInfo(lcProject).noquote() << "Journal started at" << journalPath << "on" << (basePath.isEmpty() ? QStringLiteral("a new project") : basePath);
    return m_failed ? OV::Error(1, m_file.lastError()) : OV::Error();
}

void OVProjectJournal::stop()
{
    detachAll();
    m_project = nullptr;
    m_file.close();
}

void OVProjectJournal::discard()
{
    stop();
    if (!m_path.isEmpty())
        QFile::remove(m_path);
}

OV::Error OVProjectJournal::rebase(const QString &basePath, quint64 savedUpTo)
{
    if (!m_file.isOpen())
        return OV::Error(1, QStringLiteral("The journal is not open"));
    OVJournalFile::Contents contents;
    OV::Error error = OVJournalFile::read(m_path, &contents);
    if (!error.isOk())
        return error;
    QJsonObject base { { QStringLiteral("t"), kBase },
                       { QStringLiteral("at"), double(QDateTime::currentMSecsSinceEpoch()) },
                       { QStringLiteral("base"), basePath },
                       { QStringLiteral("title"), m_project ? m_project->title() : QString() } };
    const QFileInfo info(basePath);
    base.insert(QStringLiteral("size"), double(info.size()));
    base.insert(QStringLiteral("mtime"), double(info.lastModified().toMSecsSinceEpoch()));
    // Position records before the snapshot go with it; where the recording stands must not.
    if (m_position >= 0.0)
        base.insert(QStringLiteral("pos"), m_position);
    // The base record takes the saved snapshot's number, which no kept record has.
    QList<OVJournalFile::Record> kept { { qMax<quint64>(1, savedUpTo), QJsonDocument(base).toJson(QJsonDocument::Compact) } };
    int changes = 0;
    for (const OVJournalFile::Record &r : std::as_const(contents.records)) {
        if (r.sequence > savedUpTo) {
            kept.append(r);
            ++changes;
        }
    }
    const quint64 next = m_file.lastSequence() + 1;
    error = m_file.create(m_path, kept, next);
    if (!error.isOk()) {
        m_failed = true;
        Q_EMIT writeFailed(error.message());
        return error;
    }
    m_changes = changes;
    return OV::Error();
}

void OVProjectJournal::noteTakenBack()
{
    write({ { QStringLiteral("t"), kTakenBack } }, false);
}

void OVProjectJournal::notePosition(double seconds)
{
    if (!std::isfinite(seconds) || seconds < 0.0 || seconds == m_position)
        return;
    m_position = seconds;
    write({ { QStringLiteral("t"), kPosition }, { QStringLiteral("pos"), seconds } }, false);
}

void OVProjectJournal::noteRecoveryCopy(const QString &path)
{
    write({ { QStringLiteral("t"), kRecoveryCopy }, { QStringLiteral("path"), path } }, false);
    m_file.syncNow();
}

void OVProjectJournal::write(const QJsonObject &record, bool isChange)
{
    if (m_failed || !m_file.isOpen())
        return;
    QJsonObject r = record;
    r.insert(QStringLiteral("at"), double(QDateTime::currentMSecsSinceEpoch()));
    if (m_batch) {
        m_batch->append(QJsonDocument(r).toJson(QJsonDocument::Compact));
        return;
    }
    if (m_file.append(QJsonDocument(r).toJson(QJsonDocument::Compact)) == 0) {
        m_failed = true;
        qCWarning(lcProject).noquote() << "Journal:" << m_file.lastError();
        Q_EMIT writeFailed(m_file.lastError());
        return;
    }
    if (isChange)
        ++m_changes;
}

void OVProjectJournal::writeHeader()
{
    const Project *p = m_project;
    write({ { QStringLiteral("t"), kHeader },
            { QStringLiteral("id"), p->id() },
            { QStringLiteral("type"), p->projectType() },
            { QStringLiteral("maxw"), p->maxTextWidth() },
            { QStringLiteral("online"), double(p->onlineId()) },
            { QStringLiteral("title"), p->title() },
            { QStringLiteral("desc"), p->description() },
            { QStringLiteral("videoId"), p->videoId() },
            { QStringLiteral("video"), p->videoPath() },
            { QStringLiteral("videoLen"), p->videoLength() },
            { QStringLiteral("rel"), p->useRelativePath() },
            { QStringLiteral("tlids"), toArray(p->timelineIds()) },
            { QStringLiteral("owner"), p->owner() },
            { QStringLiteral("offline"), p->offlineUser() } });
}

void OVProjectJournal::writeTimeline(TimelineWatch &watch, bool withBinaryData)
{
    const Timeline *t = watch.timeline;
    QJsonObject r { { QStringLiteral("t"), kTimeline },
                    { QStringLiteral("id"), t->id() },
                    { QStringLiteral("owner"), t->owner() },
                    { QStringLiteral("blind"), t->isBlind() } };
    watch.labelOrder = labelIds(t);
    r.insert(QStringLiteral("labels"), toArray(watch.labelOrder));
    for (int i = 0; i < 4; ++i) {
        watch.hidden[i] = hiddenList(t, i);
        r.insert(QLatin1String(kHiddenKeys[i]), toArray(watch.hidden[i]));
    }
    if (withBinaryData) {
        QJsonObject bin;
        for (auto it = t->binaryData().cbegin(); it != t->binaryData().cend(); ++it)
            bin.insert(it.key(), QString::fromLatin1(it.value().toBase64()));
        r.insert(QStringLiteral("bin"), bin);
    }
    write(r);
}

void OVProjectJournal::writeLabel(Label *l)
{
    const Timeline *t = l->timeline();
    if (!t)
        return;
    write({ { QStringLiteral("t"), kLabel },
            { QStringLiteral("tl"), t->id() },
            { QStringLiteral("id"), l->id() },
            { QStringLiteral("name"), l->name() },
            { QStringLiteral("desc"), l->description() },
            { QStringLiteral("color"), double(l->color().rgba()) },
            { QStringLiteral("key"), int(l->key().unicode()) },
            { QStringLiteral("order"), l->sortOrder() } });
}

void OVProjectJournal::writeSegment(Segment *s)
{
    const Label *l = s->label();
    const Timeline *t = l ? l->timeline() : nullptr;
    if (!t)
        return;
    write({ { QStringLiteral("t"), kSegment },
            { QStringLiteral("tl"), t->id() },
            { QStringLiteral("l"), l->id() },
            { QStringLiteral("id"), s->id() },
            { QStringLiteral("s"), s->start() },
            { QStringLiteral("e"), s->end() },
            { QStringLiteral("d"), s->description() },
            { QStringLiteral("x"), s->text() } });
}

void OVProjectJournal::writeUtterance(Timeline *t, Utterance *u)
{
    write({ { QStringLiteral("t"), kUtterance },
            { QStringLiteral("tl"), t->id() },
            { QStringLiteral("id"), u->id() },
            { QStringLiteral("text"), u->text() },
            { QStringLiteral("spk"), u->speaker() },
            { QStringLiteral("s"), u->startTime() },
            { QStringLiteral("e"), u->endTime() } });
}

void OVProjectJournal::writeGroup(Timeline *t, SegmentGroup *g)
{
    write({ { QStringLiteral("t"), kGroup },
            { QStringLiteral("tl"), t->id() },
            { QStringLiteral("id"), g->id() },
            { QStringLiteral("name"), g->name() },
            { QStringLiteral("segs"), toArray(g->segmentIds()) } });
}

void OVProjectJournal::attachProject(bool writeContent)
{
    m_scope = std::make_unique<QObject>();
    QObject *scope = m_scope.get();
    Project *p = m_project;
    connect(p, &Project::changed, scope, [this] { writeHeader(); });
    connect(p, &Project::projectTypeChanged, scope, [this] { writeHeader(); });
    connect(p->timelineGroup(), &TimelineGroup::timelinesChanged, scope, [this] { syncTimelines(); });
    // The content goes out in one write: a hundred thousand segments are one system call, not
    // a hundred thousand.
    QList<QByteArray> batch;
    if (writeContent) {
        m_batch = &batch;
        writeHeader();
    }
    for (Timeline *t : p->timelineGroup()->timelines())
        attachTimeline(t, writeContent);
    if (writeContent) {
        write({ { QStringLiteral("t"), kContentEnd } }, false);
        m_batch = nullptr;
        if (m_file.append(batch) == 0) {
            m_failed = true;
            qCWarning(lcProject).noquote() << "Journal:" << m_file.lastError();
            Q_EMIT writeFailed(m_file.lastError());
        }
        // The content is the base, not a change.
        m_changes = 0;
    }
}

void OVProjectJournal::attachTimeline(Timeline *t, bool writeTree)
{
    const Id id = t->id();
    TimelineWatch &w = m_timelines[id];
    w.timeline = t;
    if (writeTree) {
        writeTimeline(w, true);
        for (Label *l : t->labels()) {
            writeLabel(l);
            for (Segment *s : l->segments())
                writeSegment(s);
        }
        for (Utterance *u : t->utterances())
            writeUtterance(t, u);
        for (SegmentGroup *g : t->segmentGroups())
            writeGroup(t, g);
        // Again, now that the labels exist, so that their order holds.
        writeTimeline(w, false);
    } else {
        w.labelOrder = labelIds(t);
        for (int i = 0; i < 4; ++i)
            w.hidden[i] = hiddenList(t, i);
    }
    QObject *scope = m_scope.get();
    for (Label *l : t->labels())
        attachLabel(l);
    for (Utterance *u : t->utterances()) {
        w.utterances.insert(u->id(), u);
        connect(u, &Utterance::changed, scope, [this, t, u] { writeUtterance(t, u); });
    }
    for (SegmentGroup *g : t->segmentGroups()) {
        w.groups.insert(g->id(), g);
        connect(g, &SegmentGroup::changed, scope, [this, t, g] { writeGroup(t, g); });
    }
    connect(t, &Timeline::changed, scope, [this, id] {
        if (m_timelines.contains(id))
            writeTimeline(m_timelines[id], true);
    });
    connect(t, &Timeline::labelsChanged, scope, [this, id] { syncLabels(id); });
    connect(t, &Timeline::utterancesChanged, scope, [this, id] { syncUtterances(id); });
    connect(t, &Timeline::segmentGroupsChanged, scope, [this, id] { syncGroups(id); });
    connect(t, &Timeline::segmentsChanged, scope, [this, id] { syncHidden(id); });
}

void OVProjectJournal::attachLabel(Label *l)
{
    const Timeline *t = l->timeline();
    if (!t || !m_timelines.contains(t->id()))
        return;
    m_timelines[t->id()].labels.insert(l->id(), l);
    QObject *scope = m_scope.get();
    connect(l, &Label::changed, scope, [this, l] { writeLabel(l); });
    connect(l, &Label::segmentAdded, scope, [this](Segment *s) { writeSegment(s); });
    connect(l, &Label::segmentChanged, scope, [this](Segment *s) { writeSegment(s); });
    const Id timelineId = t->id();
    connect(l, &Label::segmentRemoved, scope, [this, timelineId](const Id &segmentId) {
        write({ { QStringLiteral("t"), kSegmentGone }, { QStringLiteral("tl"), timelineId }, { QStringLiteral("id"), segmentId } });
    });
}

void OVProjectJournal::syncTimelines()
{
    QSet<Id> present;
    for (Timeline *t : m_project->timelineGroup()->timelines()) {
        present.insert(t->id());
        auto it = m_timelines.find(t->id());
        if (it == m_timelines.end() || it->timeline != t) {
            if (it != m_timelines.end())
                detachTimeline(*it);
            attachTimeline(t, true);
        }
    }
    for (auto it = m_timelines.begin(); it != m_timelines.end();) {
        if (present.contains(it.key()) && it->timeline) {
            ++it;
            continue;
        }
        detachTimeline(*it);
        write({ { QStringLiteral("t"), kTimelineGone }, { QStringLiteral("id"), it.key() } });
        it = m_timelines.erase(it);
    }
}

// A timeline taken out of the project may come back later: nothing of it may stay connected.
void OVProjectJournal::detachTimeline(TimelineWatch &watch)
{
    QObject *scope = m_scope.get();
    if (watch.timeline)
        disconnect(watch.timeline, nullptr, scope, nullptr);
    for (const auto &l : std::as_const(watch.labels)) {
        if (l)
            disconnect(l, nullptr, scope, nullptr);
    }
    for (const auto &u : std::as_const(watch.utterances)) {
        if (u)
            disconnect(u, nullptr, scope, nullptr);
    }
    for (const auto &g : std::as_const(watch.groups)) {
        if (g)
            disconnect(g, nullptr, scope, nullptr);
    }
    watch = TimelineWatch();
}

void OVProjectJournal::syncLabels(const Id &timelineId)
{
    auto wit = m_timelines.find(timelineId);
    if (wit == m_timelines.end() || !wit->timeline)
        return;
    TimelineWatch &w = *wit;
    Timeline *t = w.timeline;
    QSet<Id> present;
    for (Label *l : t->labels()) {
        present.insert(l->id());
        const auto it = w.labels.constFind(l->id());
        if (it != w.labels.cend() && it.value() == l)
            continue;
        writeLabel(l);
        for (Segment *s : l->segments())
            writeSegment(s);
        attachLabel(l);
    }
    for (auto it = w.labels.begin(); it != w.labels.end();) {
        if (present.contains(it.key()) && it.value() && it.value()->timeline() == t) {
            ++it;
            continue;
        }
        if (Label *gone = it.value())
            disconnect(gone, nullptr, m_scope.get(), nullptr);
        write({ { QStringLiteral("t"), kLabelGone }, { QStringLiteral("tl"), timelineId }, { QStringLiteral("id"), it.key() } });
        it = w.labels.erase(it);
    }
    bool hiddenChanged = false;
    for (int i = 0; i < 4; ++i)
        hiddenChanged = hiddenChanged || w.hidden[i] != hiddenList(t, i);
    if (hiddenChanged || w.labelOrder != labelIds(t))
        writeTimeline(w, false);
}

// Utterances and segment groups: few per timeline, found by id, each announcing its own changes.
template <typename Node>
void OVProjectJournal::syncChildren(const Id &timelineId, QHash<Id, QPointer<Node>> &known, const QList<Node *> &now,
                                    const QString &goneType, void (OVProjectJournal::*writeOne)(Timeline *, Node *))
{
    Timeline *t = m_timelines.find(timelineId)->timeline; // the callers made sure it is there
    QSet<Id> present;
    for (Node *n : now) {
        present.insert(n->id());
        const auto it = known.constFind(n->id());
        if (it != known.cend() && it.value() == n)
            continue;
        (this->*writeOne)(t, n);
        known.insert(n->id(), n);
        connect(n, &Node::changed, m_scope.get(), [this, t, n, writeOne] { (this->*writeOne)(t, n); });
    }
    for (auto it = known.begin(); it != known.end();) {
        if (present.contains(it.key()) && it.value()) {
            ++it;
            continue;
        }
        write({ { QStringLiteral("t"), goneType }, { QStringLiteral("tl"), timelineId }, { QStringLiteral("id"), it.key() } });
        it = known.erase(it);
    }
}

void OVProjectJournal::syncUtterances(const Id &timelineId)
{
    auto wit = m_timelines.find(timelineId);
    if (wit == m_timelines.end() || !wit->timeline)
        return;
    syncChildren(timelineId, wit->utterances, wit->timeline->utterances(), kUtteranceGone, &OVProjectJournal::writeUtterance);
    syncHidden(timelineId);
}

void OVProjectJournal::syncGroups(const Id &timelineId)
{
    auto wit = m_timelines.find(timelineId);
    if (wit == m_timelines.end() || !wit->timeline)
        return;
    syncChildren(timelineId, wit->groups, wit->timeline->segmentGroups(), kGroupGone, &OVProjectJournal::writeGroup);
}

void OVProjectJournal::syncHidden(const Id &timelineId)
{
    // segmentsChanged() comes with every coded key: the hidden lists are short, comparing is cheap.
    auto wit = m_timelines.find(timelineId);
    if (wit == m_timelines.end() || !wit->timeline)
        return;
    for (int i = 0; i < 4; ++i) {
        if (wit->hidden[i] != hiddenList(wit->timeline, i)) {
            writeTimeline(*wit, false);
            return;
        }
    }
}

void OVProjectJournal::detachAll()
{
    m_scope.reset();
    m_timelines.clear();
}

int OVProjectJournal::applyRecords(const QList<OVJournalFile::Record> &records, int from, Project *target)
{
    Replay replay(target);
    int unknown = 0;
    for (int i = qMax(0, from); i < records.size(); ++i) {
        if (!replay.apply(parse(records[i].payload)))
            ++unknown;
    }
    return unknown;
}

OV::Error OVProjectJournal::readSummary(const QString &path, Summary *summary)
{
    *summary = Summary();
    OVJournalFile::Contents contents;
    const OV::Error error = OVJournalFile::read(path, &contents);
    if (!error.isOk())
        return error;
    summary->ignoredBytes = contents.ignoredBytes;
    bool inContent = false;
    for (const OVJournalFile::Record &record : std::as_const(contents.records)) {
        const QJsonObject r = parse(record.payload);
        const QString type = r.value(QLatin1String("t")).toString();
        if (type == kBase) {
            summary->basePath = r.value(QLatin1String("base")).toString();
            summary->baseSize = qint64(r.value(QLatin1String("size")).toDouble(-1));
            if (r.contains(QLatin1String("mtime")))
                summary->baseModified = QDateTime::fromMSecsSinceEpoch(qint64(r.value(QLatin1String("mtime")).toDouble()));
            summary->projectTitle = r.value(QLatin1String("title")).toString();
            summary->started = timeOf(r);
            summary->changes = 0;
            summary->position = positionOf(r, summary->position);
            // The project's whole content may follow, up to its end record: that is no change.
            inContent = r.value(QLatin1String("content")).toBool();
        } else if (type == kContentEnd) {
            inContent = false;
        } else if (type == kRecoveryCopy) {
            summary->recoveryCopy = r.value(QLatin1String("path")).toString();
        } else if (type == kPosition) {
            summary->position = positionOf(r, summary->position);
        } else if (type == kTakenBack) {
            summary->unsavedContent = true;
            summary->lastChange = timeOf(r);
        } else {
            if (type == kHeader)
                summary->projectTitle = r.value(QLatin1String("title")).toString();
            if (!inContent) {
                ++summary->changes;
                summary->lastChange = timeOf(r);
            }
        }
    }
    return OV::Error();
}

OV::Error OVProjectJournal::recover(const QString &path, Project *target, Summary *summary, OVLocalFileStorage *storage)
{
    Summary local;
    Summary &s = summary ? *summary : local;
    OV::Error error = readSummary(path, &s);
    if (!error.isOk())
        return error;
    OVJournalFile::Contents contents;
    error = OVJournalFile::read(path, &contents);
    if (!error.isOk())
        return error;

    // Start from the last copy the session wrote itself, if it is still there, else from the base.
    int from = 0;
    QString start;
    for (int i = int(contents.records.size()) - 1; i >= 0; --i) {
        const QJsonObject r = parse(contents.records[i].payload);
        const QString type = r.value(QLatin1String("t")).toString();
        if (type == kRecoveryCopy && QFileInfo::exists(r.value(QLatin1String("path")).toString())) {
            start = r.value(QLatin1String("path")).toString();
            from = i + 1;
            break;
        }
        if (type == kBase) {
            start = r.value(QLatin1String("base")).toString();
            from = i + 1;
            break;
        }
    }
    target->reset();
    if (!start.isEmpty()) {
        OVLocalFileStorage own;
        error = (storage ? storage : &own)->load(start, target);
        if (!error.isOk())
            return OV::Error(error.code(), QStringLiteral("The unsaved changes were made to %1, which cannot be read now:\n%2")
                                               .arg(start, error.message()));
    }
    const int unknown = applyRecords(contents.records, from, target);
    if (unknown > 0)
        qCWarning(lcProject).noquote() << "Journal:" << unknown << "record(s) of" << path << "not understood and skipped";
    return OV::Error();
}
