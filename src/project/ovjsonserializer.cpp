#include "project/ovjsonserializer.h"

#include "project/label.h"
#include "project/ovprojectlogging.h"
#include "project/project.h"
#include "project/projectsnapshot.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/utterance.h"

#include <QCryptographicHash>
#include <QDebug>
#include <QFile>
#include <QSaveFile>
#include <QSet>
#include <QStringDecoder>

#include <json/json.h>
#include <zlib.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

using namespace OVProject;

namespace {

const char EnvelopeMagic[] = "CMP0";
constexpr int EnvelopeHeaderSize = 20;

// ---- reading: strict, every refusal names the place and the check ----

const Json::Value *member(const Json::Value &object, const char *key)
{
    if (!object.isObject())
        return nullptr;
    return object.find(key, key + std::strlen(key));
}

QString quoted(const char *key) { return QLatin1Char('"') + QLatin1String(key) + QLatin1Char('"'); }

QString quoted(const QString &text) { return QLatin1Char('"') + text + QLatin1Char('"'); }

QString typeName(const Json::Value &v)
{
    switch (v.type()) {
    case Json::nullValue:
        return QStringLiteral("null");
    case Json::intValue:
    case Json::uintValue:
    case Json::realValue:
        return QStringLiteral("a number");
    case Json::stringValue:
        return QStringLiteral("text");
    case Json::booleanValue:
        return QStringLiteral("true or false");
    case Json::arrayValue:
        return QStringLiteral("a list");
    case Json::objectValue:
        return QStringLiteral("an object");
    }
    return QStringLiteral("unknown");
}

QByteArrayView bytesOf(const Json::Value &v)
{
    const char *b = nullptr;
    const char *e = nullptr;
    v.getString(&b, &e);
    return QByteArrayView(b, qsizetype(e - b));
}

// The state of one document's reading: the budget it draws from and the first refusal.
class Reader
{
public:
    Reader(OVReadBudget *budget, QString *why)
        : m_budget(budget)
        , m_why(why)
    {
    }

    OVReadBudget *budget() const { return m_budget; }

    bool fail(const QString &place, const QString &what)
    {
        if (m_why && m_why->isEmpty())
            *m_why = place.isEmpty() ? what : place + QStringLiteral(": ") + what;
        return false;
    }
    // A refusal of the budget (or a cancel) at `place`.
    bool failBudget(const QString &place) { return fail(place, m_budget->why()); }

    // Every 4096th step of a long loop looks at the cancel flag.
    bool cancelledAt(qsizetype step) const { return (step & 4095) == 0 && m_budget->isCancelled(); }

    // A text member. Missing: `out` keeps its default. Any other JSON type, or bytes that are not
    // UTF-8, are refused rather than turned into something the file did not say.
    bool text(const Json::Value &o, const char *key, QString *out, const QString &place)
    {
        const Json::Value *v = member(o, key);
        if (!v)
            return true;
        return textValue(*v, quoted(key), out, place);
    }

    bool textValue(const Json::Value &v, const QString &what, QString *out, const QString &place)
    {
        if (!v.isString())
            return fail(place, QStringLiteral("%1 is %2, not text").arg(what, typeName(v)));
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        QString s = decoder(bytesOf(v));
        if (decoder.hasError())
            return fail(place, QStringLiteral("%1 is not valid UTF-8").arg(what));
        *out = std::move(s);
        return true;
    }

    // The "id" of a node, which must be there and not empty: a node without one would be given a
    // new random id and no longer be the node the file meant.
    bool id(const Json::Value &o, QString *out, const QString &place)
    {
        if (!text(o, "id", out, place))
            return false;
        if (out->isEmpty())
            return fail(place, QStringLiteral("has no \"id\""));
        return true;
    }

    // A whole number written as text ("42") or as a JSON number (42, 42.0), within [lo, hi].
    bool integer(const Json::Value &o, const char *key, qint64 lo, qint64 hi, qint64 *out, const QString &place)
    {
        const Json::Value *v = member(o, key);
        if (!v)
            return true;
        qint64 n = 0;
        if (v->isString()) {
            const QByteArrayView b = bytesOf(*v);
            const auto [ptr, ec] = std::from_chars(b.data(), b.data() + b.size(), n);
            if (b.isEmpty() || ec != std::errc() || ptr != b.data() + b.size())
                return fail(place,
                    QStringLiteral("%1 is not a whole number: %2").arg(quoted(key), quoted(shown(b))));
        } else if (v->isInt64()) {
            n = v->asInt64();
        } else if (v->isNumeric()) {
            return fail(place, QStringLiteral("%1 is not a whole number in range: %2")
                                   .arg(quoted(key), QString::number(v->asDouble(), 'g', 17)));
        } else {
            return fail(place, QStringLiteral("%1 is %2, not a number").arg(quoted(key), typeName(*v)));
        }
        if (n < lo || n > hi)
            return fail(place, QStringLiteral("%1 is out of range: %2").arg(quoted(key)).arg(n));
        *out = n;
        return true;
    }

    // "0" or "1" (as text, number, or JSON true and false).
    bool flag(const Json::Value &o, const char *key, bool *out, const QString &place)
    {
        const Json::Value *v = member(o, key);
        if (v && v->isBool()) {
            *out = v->asBool();
            return true;
        }
        qint64 n = *out ? 1 : 0;
        if (!integer(o, key, 0, 1, &n, place))
            return false;
        *out = n != 0;
        return true;
    }

    // Seconds from the start of the video, as text ("12.340") or as a JSON number. Negative,
    // infinite and not-a-number times do not exist; neither do times beyond the open end.
    bool time(const Json::Value &o, const char *key, double *out, const QString &place, bool required)
    {
        const Json::Value *v = member(o, key);
        if (!v)
            return required ? fail(place, QStringLiteral("has no %1").arg(quoted(key))) : true;
        double d = 0;
        if (v->isString()) {
            const QByteArrayView b = bytesOf(*v);
            const auto [ptr, ec] = std::from_chars(b.data(), b.data() + b.size(), d);
            if (b.isEmpty() || ec != std::errc() || ptr != b.data() + b.size())
                return fail(place, QStringLiteral("%1 is not a time in seconds: %2").arg(quoted(key), quoted(shown(b))));
        } else if (v->isNumeric()) {
            d = v->asDouble();
        } else {
            return fail(place, QStringLiteral("%1 is %2, not a time").arg(quoted(key), typeName(*v)));
        }
        if (!std::isfinite(d) || d < 0 || d > Segment::OpenEnd)
            return fail(place, QStringLiteral("%1 is not a possible time: %2").arg(quoted(key), QString::number(d, 'f', 3)));
        *out = d;
        return true;
    }

    // A member that must be a list when it is there; null when missing (`ok` stays true).
    const Json::Value *list(const Json::Value &o, const char *key, const QString &place, bool *ok)
    {
        const Json::Value *v = member(o, key);
        if (v && !v->isArray()) {
            *ok = fail(place, QStringLiteral("%1 is %2, not a list").arg(quoted(key), typeName(*v)));
            return nullptr;
        }
        return v;
    }

    // A list of texts; `unique`: a repeated one is refused.
    bool textList(const Json::Value &o, const char *key, QStringList *out, const QString &place, bool unique)
    {
        bool ok = true;
        const Json::Value *arr = list(o, key, place, &ok);
        if (!arr)
            return ok;
        QStringList result;
        result.reserve(qsizetype(arr->size()));
        QSet<QString> seen;
        for (Json::ArrayIndex i = 0; i < arr->size(); ++i) {
            QString s;
            const QString what = QStringLiteral("%1 item %2").arg(quoted(key)).arg(i + 1);
            if (!textValue((*arr)[i], what, &s, place))
                return false;
            if (unique) {
                if (seen.contains(s))
                    return fail(place, QStringLiteral("%1 is %2, which is listed twice").arg(what, quoted(s)));
                seen.insert(s);
            }
            result.append(std::move(s));
        }
        *out = std::move(result);
        return true;
    }

    // An object item of a list.
    bool object(const Json::Value &v, const QString &place)
    {
        return v.isObject() || fail(place, QStringLiteral("is %1, not an object").arg(typeName(v)));
    }

private:
    // A short, printable excerpt of a bad value for the message.
    static QString shown(QByteArrayView b)
    {
        QString s = QString::fromUtf8(b.first(std::min<qsizetype>(b.size(), 40)));
        return b.size() > 40 ? s + QStringLiteral("...") : s;
    }

    OVReadBudget *m_budget;
    QString *m_why;
};

// Counts, as the text streams past, the JSON values it will make (one per container opened and
// one per separator: what JsonCpp allocates a node for), so a document is refused before its tree
// is built; and finds raw control characters inside strings, which JSON does not allow.
class ValueCounter
{
public:
    // False on a raw control character in a string.
    bool feed(const char *data, qsizetype size)
    {
        for (qsizetype i = 0; i < size; ++i) {
            const uchar c = uchar(data[i]);
            if (m_inString) {
                if (m_escape)
                    m_escape = false;
                else if (c == '\\')
                    m_escape = true;
                else if (c == '"')
                    m_inString = false;
                else if (c < 0x20)
                    return false;
            } else if (c == '"') {
                m_inString = true;
            } else if (c == '{' || c == '[' || c == ',') {
                ++m_values;
            }
        }
        return true;
    }
    // Values counted since the last call.
    qint64 takeNew()
    {
        const qint64 n = m_values - m_taken;
        m_taken = m_values;
        return n;
    }

private:
    bool m_inString = false;
    bool m_escape = false;
    qint64 m_values = 0;
    qint64 m_taken = 0;
};

bool parse(const QByteArray &document, Json::Value *root, OVReadBudget *budget, QString *why)
{
    Reader r(budget, why);
    QByteArray json;
    if (!OVJsonSerializer::unwrap(document, &json, budget, why))
        return false;
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    // Writers on Windows like to start with a byte order mark; it says nothing about the content.
    builder["skipBom"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    if (!reader->parse(json.constData(), json.constData() + json.size(), root, &errors))
        return r.fail(QString(), QStringLiteral("not valid JSON: ") + QString::fromStdString(errors).simplified());
    if (!root->isObject())
        return r.fail(QString(), QStringLiteral("the document is %1, not an object").arg(typeName(*root)));
    return true;
}

// A budget of its own for callers that read one document on its own.
struct LocalBudget
{
    explicit LocalBudget(OVReadBudget *given, qint64 size)
        : own(given ? 0 : size)
        , budget(given ? given : &own)
    {
    }
    OVReadBudget own;
    OVReadBudget *budget;
};

// Runs a reader and turns an allocation failure into a refusal. Nothing is logged inside the
// handler: the memory that ran out is only given back once the stack has unwound.
template <typename Read> bool guarded(QString *why, Read read)
{
    bool outOfMemory = false;
    try {
        return read();
    } catch (const std::bad_alloc &) {
        outOfMemory = true;
    } catch (const std::exception &) {
        // JsonCpp throws on internal limits; a reader never lets it through.
    }
    if (why)
        *why = outOfMemory ? QStringLiteral("not enough memory to read the document")
                           : QStringLiteral("the document could not be read");
    return false;
}

QString labelPlace(qsizetype index, const QString &id)
{
    return id.isEmpty() ? QStringLiteral("label %1").arg(index + 1)
                        : QStringLiteral("label %1 (id %2)").arg(index + 1).arg(quoted(id));
}

QString itemPlace(const char *kind, qsizetype index, const QString &id)
{
    return id.isEmpty() ? QStringLiteral("%1 %2").arg(QLatin1String(kind)).arg(index + 1)
                        : QStringLiteral("%1 %2 (id %3)").arg(QLatin1String(kind)).arg(index + 1).arg(quoted(id));
}

// Reads one label object with its segments; null after a refusal. Ids of labels and of segments
// must not repeat among those already read (`labelIds`, `segmentIds`).
Label *readLabel(Reader &r, const Json::Value &o, qsizetype index, bool withSortOrder, QSet<QString> *labelIds,
    QSet<QString> *segmentIds)
{
    QString id;
    if (!r.object(o, labelPlace(index, id)) || !r.id(o, &id, labelPlace(index, id)))
        return nullptr;
    const QString place = labelPlace(index, id);
    if (labelIds->contains(id)) {
        r.fail(place, QStringLiteral("the id is used by an earlier label"));
        return nullptr;
    }
    labelIds->insert(id);
    if (!r.budget()->takeLabels(1)) {
        r.failBudget(place);
        return nullptr;
    }
    QString name;
    QString desc;
    qint64 color = 0;
    qint64 key = 0;
    qint64 sortOrder = index;
    bool ok = true;
    const Json::Value *segs = nullptr;
    ok = r.text(o, "name", &name, place) && r.text(o, "desc", &desc, place)
        && r.integer(o, "color", 0, 0xFFFFFFFFLL, &color, place) && r.integer(o, "key", 0, 0xFFFF, &key, place)
        && (!withSortOrder || r.integer(o, "sortOrder", INT_MIN, INT_MAX, &sortOrder, place));
    if (ok)
        segs = r.list(o, "segments", place, &ok);
    if (!ok)
        return nullptr;
    if (segs && !r.budget()->takeSegments(qint64(segs->size()))) {
        r.failBudget(place);
        return nullptr;
    }

    QList<Segment *> segments;
    if (segs) {
        segments.reserve(qsizetype(segs->size()));
        for (Json::ArrayIndex i = 0; i < segs->size(); ++i) {
            const Json::Value &so = (*segs)[i];
            QString sid;
            double start = 0;
            double end = 0;
            QString sdesc;
            QString splace = place + QStringLiteral(", ") + itemPlace("segment", i, sid);
            ok = !r.cancelledAt(i) || r.failBudget(splace);
            ok = ok && r.object(so, splace) && r.id(so, &sid, splace);
            if (ok) {
                splace = place + QStringLiteral(", ") + itemPlace("segment", i, sid);
                if (segmentIds->contains(sid))
                    ok = r.fail(splace, QStringLiteral("the id is used by an earlier segment"));
                segmentIds->insert(sid);
            }
            ok = ok && r.text(so, "desc", &sdesc, splace) && r.time(so, "start", &start, splace, true)
                && r.time(so, "end", &end, splace, true);
            if (ok && end < start)
                ok = r.fail(splace, QStringLiteral("\"end\" %1 is before \"start\" %2")
                                        .arg(OVJsonSerializer::formatTime(end), OVJsonSerializer::formatTime(start)));
            if (!ok) {
                qDeleteAll(segments);
                return nullptr;
            }
            auto *s = new Segment(start, end, sid);
            s->setDescription(sdesc);
            segments.append(s);
        }
    }
    auto *l = new Label(id);
    l->setName(name);
    l->setDescription(desc);
    l->setColor(QColor::fromRgba(QRgb(quint32(color))));
    l->setKey(key > 0 ? QChar(char16_t(key)) : QChar());
    l->setSortOrder(int(sortOrder));
    l->addSegments(segments);
    return l;
}

// Everything a timeline document says, read in full before the timeline is touched.
struct TimelineContent
{
    TimelineContent() = default;
    TimelineContent(const TimelineContent &) = delete;
    TimelineContent &operator=(const TimelineContent &) = delete;
    ~TimelineContent()
    {
        qDeleteAll(labels);
        qDeleteAll(utterances);
        qDeleteAll(groups);
    }

    QString id;
    QString owner;
    bool blind = false;
    QList<Label *> labels;
    QList<Utterance *> utterances;
    QList<SegmentGroup *> groups;
    QStringList hiddenSegments;
    QStringList hiddenLabels;
    QStringList hiddenUtterances;
    QStringList hiddenUtteranceUsers;
    QMap<QString, QByteArray> binary;
};

bool readLabels(Reader &r, const Json::Value &arr, bool withSortOrder, QList<Label *> *out)
{
    QSet<QString> labelIds;
    QSet<QString> segmentIds;
    for (Json::ArrayIndex i = 0; i < arr.size(); ++i) {
        Label *l = readLabel(r, arr[i], i, withSortOrder, &labelIds, &segmentIds);
        if (!l)
            return false;
        out->append(l);
    }
    return true;
}

bool readTimelineContent(Reader &r, const Json::Value &root, TimelineContent *c)
{
    bool ok = r.text(root, "id", &c->id, QString()) && r.text(root, "owner", &c->owner, QString())
        && r.flag(root, "isBlind", &c->blind, QString());
    const Json::Value *labels = ok ? r.list(root, "labels", QString(), &ok) : nullptr;
    if (!ok || (labels && !readLabels(r, *labels, true, &c->labels)))
        return false;

    const Json::Value *utterances = r.list(root, "utterances", QString(), &ok);
    if (!ok)
        return false;
    if (utterances) {
        if (!r.budget()->takeUtterances(qint64(utterances->size())))
            return r.failBudget(QStringLiteral("\"utterances\""));
        QSet<QString> ids;
        for (Json::ArrayIndex i = 0; i < utterances->size(); ++i) {
            const Json::Value &uo = (*utterances)[i];
            QString id;
            if (r.cancelledAt(i))
                return r.failBudget(itemPlace("utterance", i, id));
            if (!r.object(uo, itemPlace("utterance", i, id)) || !r.id(uo, &id, itemPlace("utterance", i, id)))
                return false;
            const QString place = itemPlace("utterance", i, id);
            if (ids.contains(id))
                return r.fail(place, QStringLiteral("the id is used by an earlier utterance"));
            ids.insert(id);
            QString text;
            QString speaker;
            double start = 0;
            double end = 0;
            if (!r.text(uo, "text", &text, place) || !r.text(uo, "speaker", &speaker, place)
                || !r.time(uo, "startTime", &start, place, true) || !r.time(uo, "endTime", &end, place, true))
                return false;
            if (end < start)
                return r.fail(place, QStringLiteral("\"endTime\" %1 is before \"startTime\" %2")
                                         .arg(OVJsonSerializer::formatTime(end), OVJsonSerializer::formatTime(start)));
            auto *u = new Utterance(id);
            u->setText(text);
            u->setSpeaker(speaker);
            u->setStartTime(start);
            u->setEndTime(end);
            c->utterances.append(u);
        }
    }

    const Json::Value *groups = r.list(root, "segment_groups", QString(), &ok);
    if (!ok)
        return false;
    if (groups) {
        if (!r.budget()->takeGroups(qint64(groups->size())))
            return r.failBudget(QStringLiteral("\"segment_groups\""));
        QSet<QString> ids;
        for (Json::ArrayIndex i = 0; i < groups->size(); ++i) {
            const Json::Value &go = (*groups)[i];
            QString id;
            if (!r.object(go, itemPlace("segment group", i, id)) || !r.id(go, &id, itemPlace("segment group", i, id)))
                return false;
            const QString place = itemPlace("segment group", i, id);
            if (ids.contains(id))
                return r.fail(place, QStringLiteral("the id is used by an earlier segment group"));
            ids.insert(id);
            QString name;
            QStringList segids;
            if (!r.text(go, "name", &name, place) || !r.textList(go, "segids", &segids, place, false))
                return false;
            auto *g = new SegmentGroup(id);
            g->setName(name);
            g->setSegmentIds(segids);
            c->groups.append(g);
        }
    }

    if (!r.textList(root, "hidden_segments", &c->hiddenSegments, QString(), true)
        || !r.textList(root, "hidden_labels", &c->hiddenLabels, QString(), true)
        || !r.textList(root, "hidden_utterances", &c->hiddenUtterances, QString(), true)
        || !r.textList(root, "hidden_uttusers", &c->hiddenUtteranceUsers, QString(), true))
        return false;

    const Json::Value *binary = r.list(root, "binary_data", QString(), &ok);
    if (!ok)
        return false;
    if (binary) {
        for (Json::ArrayIndex i = 0; i < binary->size(); ++i) {
            const Json::Value &bo = (*binary)[i];
            QString key;
            QString place = QStringLiteral("attachment %1").arg(i + 1);
            if (!r.object(bo, place) || !r.text(bo, "key", &key, place))
                return false;
            place = QStringLiteral("attachment %1 (key %2)").arg(i + 1).arg(quoted(key));
            if (c->binary.contains(key))
                return r.fail(place, QStringLiteral("the key is used by an earlier attachment"));
            const Json::Value *data = member(bo, "data");
            if (data && !data->isString())
                return r.fail(place, QStringLiteral("\"data\" is %1, not text").arg(typeName(*data)));
            auto decoded = QByteArray::fromBase64Encoding(data ? bytesOf(*data).toByteArray() : QByteArray(),
                QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
            if (!decoded)
                return r.fail(place, QStringLiteral("\"data\" is not base64"));
            c->binary.insert(key, std::move(decoded.decoded));
        }
    }
    return true;
}

// Replaces the timeline's content by what was read; the reading can no longer fail here.
void commitTimeline(TimelineContent *c, Timeline *t)
{
    while (!t->labels().isEmpty())
        t->removeLabel(t->labels().constLast());
    while (!t->utterances().isEmpty())
        t->removeUtterance(t->utterances().constLast());
    while (!t->segmentGroups().isEmpty())
        t->removeSegmentGroup(t->segmentGroups().constLast());
    if (!c->id.isEmpty())
        t->setId(c->id);
    t->setOwner(c->owner);
    t->setBlind(c->blind);
    for (Label *l : std::as_const(c->labels))
        t->addLabel(l);
    c->labels.clear();
    t->addUtterances(c->utterances);
    c->utterances.clear();
    for (SegmentGroup *g : std::as_const(c->groups))
        t->addSegmentGroup(g);
    c->groups.clear();
    t->setHiddenSegments(c->hiddenSegments);
    t->setHiddenLabels(c->hiddenLabels);
    t->setHiddenUtterances(c->hiddenUtterances);
    t->setHiddenUtteranceUsers(c->hiddenUtteranceUsers);
    for (const QString &key : t->binaryData().keys())
        t->removeBinaryData(key);
    for (auto it = c->binary.cbegin(); it != c->binary.cend(); ++it)
        t->setBinaryData(it.key(), it.value());
}

// ---- writing helpers ----

Json::Value str(const QString &s) { return Json::Value(s.toStdString()); }

Json::Value strList(const QStringList &list)
{
    Json::Value arr(Json::arrayValue);
    for (const QString &s : list)
        arr.append(str(s));
    return arr;
}

Json::Value labelObject(const ProjectSnapshot::LabelData &l, bool withSortOrder)
{
    Json::Value o(Json::objectValue);
    o["id"] = str(l.id);
    o["name"] = str(l.name);
    o["desc"] = str(l.description);
    o["color"] = str(QString::number(l.rgba));
    o["key"] = str(QString::number(l.key));
    if (withSortOrder)
        o["sortOrder"] = str(QString::number(l.sortOrder));
    Json::Value segs(Json::arrayValue);
    for (const ProjectSnapshot::SegmentData &s : l.segments) {
        Json::Value so(Json::objectValue);
        so["id"] = str(s.id);
        so["desc"] = str(s.description);
        so["start"] = str(OVJsonSerializer::formatTime(s.start));
        so["end"] = str(OVJsonSerializer::formatTime(s.end));
        segs.append(std::move(so));
    }
    o["segments"] = std::move(segs);
    return o;
}

} // namespace

QString OVJsonSerializer::formatTime(double seconds) { return QString::number(seconds, 'f', 3); }

QByteArray OVJsonSerializer::finish(const std::string &json) const
{
    const QByteArray bytes = QByteArray(json.data(), qsizetype(json.size())).trimmed();
    return m_compress ? wrap(bytes, m_level) : bytes;
}

static std::string compactJson(const Json::Value &root)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    builder["emitUTF8"] = true;
    return Json::writeString(builder, root);
}

QByteArray OVJsonSerializer::writeProject(const Project *p) const
{
    return writeProject(ProjectSnapshot::header(p));
}

QByteArray OVJsonSerializer::writeProject(const ProjectSnapshot::HeaderData &p) const
{
    Json::Value root(Json::objectValue);
    root["title"] = str(p.title);
    root["desc"] = str(p.description);
    root["id"] = str(p.id);
    root["timeline_ids"] = strList(p.timelineIds);
    root["video_id"] = str(QString::number(p.videoId));
    root["video_path"] = str(p.videoPath);
    root["userelpath"] = str(p.useRelativePath ? QStringLiteral("1") : QStringLiteral("0"));
    root["online_id"] = Json::Value(Json::Int64(p.onlineId));
    root["project_type"] = Json::Value(p.projectType);
    root["max_text_lw"] = Json::Value(p.maxTextWidth);
    root["owner"] = str(p.owner);
    root["offlineUser"] = str(p.offlineUser);
    // Not one of the original members: readers that do not know it ignore it, and a file without
    // it reads as "no video length known yet".
    root["video_length"] = str(formatTime(p.videoLength));
    return finish(compactJson(root));
}

bool OVJsonSerializer::readProject(const QByteArray &data, Project *p) const
{
    return readProject(data, p, nullptr, nullptr);
}

bool OVJsonSerializer::readProject(const QByteArray &data, Project *p, OVReadBudget *given, QString *why) const
{
    LocalBudget local(given, data.size());
    return guarded(why, [&] {
        Json::Value root;
        if (!parse(data, &root, local.budget, why))
            return false;
        Reader r(local.budget, why);
        QString title;
        QString desc;
        QString id;
        QStringList timelineIds;
        qint64 videoId = -1;
        QString videoPath;
        bool relative = true;
        qint64 onlineId = -1;
        qint64 type = 0;
        qint64 width = 80;
        QString owner;
        QString offlineUser;
        double length = 0;
        const QString top;
        if (!r.text(root, "title", &title, top) || !r.text(root, "desc", &desc, top) || !r.text(root, "id", &id, top)
            || !r.textList(root, "timeline_ids", &timelineIds, top, true)
            || !r.integer(root, "video_id", INT_MIN, INT_MAX, &videoId, top)
            || !r.text(root, "video_path", &videoPath, top) || !r.flag(root, "userelpath", &relative, top)
            || !r.integer(root, "online_id", LLONG_MIN, LLONG_MAX, &onlineId, top)
            || !r.integer(root, "project_type", INT_MIN, INT_MAX, &type, top)
            || !r.integer(root, "max_text_lw", 0, INT_MAX, &width, top) || !r.text(root, "owner", &owner, top)
            || !r.text(root, "offlineUser", &offlineUser, top) || !r.time(root, "video_length", &length, top, false))
            return false;
        if (timelineIds.size() > OVReadBudget::MaxTimelines)
            return r.fail(top, QStringLiteral("more than %1 timelines").arg(OVReadBudget::MaxTimelines));
        for (qsizetype i = 0; i < timelineIds.size(); ++i) {
            if (timelineIds[i].isEmpty())
                return r.fail(top, QStringLiteral("\"timeline_ids\" item %1 is empty").arg(i + 1));
        }
        p->setTitle(title);
        p->setDescription(desc);
        p->setId(id);
        p->setTimelineIds(timelineIds);
        p->setVideoId(int(videoId));
        p->setVideoPath(videoPath);
        p->setUseRelativePath(relative);
        p->setOnlineId(onlineId);
        p->setProjectType(int(type));
        p->setMaxTextWidth(int(width));
        p->setOwner(owner);
        p->setOfflineUser(offlineUser);
        p->setVideoLength(length == Segment::OpenEnd ? 0.0 : length);
        return true;
    });
}
QByteArray OVJsonSerializer::writeTimeline(const Timeline *t) const
{
    return writeTimeline(ProjectSnapshot::timeline(t));
}

QByteArray OVJsonSerializer::writeTimeline(const ProjectSnapshot::TimelineData &t) const
{
    Json::Value root(Json::objectValue);
    root["id"] = str(t.id);
    root["owner"] = str(t.owner);
    root["isBlind"] = str(t.blind ? QStringLiteral("1") : QStringLiteral("0"));
    Json::Value labels(Json::arrayValue);
    for (const ProjectSnapshot::LabelData &l : t.labels)
        labels.append(labelObject(l, true));
    root["labels"] = std::move(labels);

    Json::Value utterances(Json::arrayValue);
    for (const ProjectSnapshot::UtteranceData &u : t.utterances) {
        Json::Value o(Json::objectValue);
        o["id"] = str(u.id);
        o["text"] = str(u.text);
        o["speaker"] = str(u.speaker);
        o["startTime"] = str(formatTime(u.start));
        o["endTime"] = str(formatTime(u.end));
        utterances.append(std::move(o));
    }
    root["utterances"] = std::move(utterances);

    Json::Value groups(Json::arrayValue);
    for (const ProjectSnapshot::GroupData &g : t.groups) {
        Json::Value o(Json::objectValue);
        o["id"] = str(g.id);
        o["name"] = str(g.name);
        o["segids"] = strList(g.segmentIds);
        groups.append(std::move(o));
    }
    root["segment_groups"] = std::move(groups);

    root["hidden_segments"] = strList(t.hiddenSegments);
    root["hidden_labels"] = strList(t.hiddenLabels);
    root["hidden_utterances"] = strList(t.hiddenUtterances);
    root["hidden_uttusers"] = strList(t.hiddenUtteranceUsers);

    Json::Value binary(Json::arrayValue);
    for (auto it = t.binaryData.cbegin(); it != t.binaryData.cend(); ++it) {
        Json::Value o(Json::objectValue);
        o["key"] = str(it.key());
        o["data"] = Json::Value(it.value().toBase64().toStdString());
        binary.append(std::move(o));
    }
    root["binary_data"] = std::move(binary);
    return finish(compactJson(root));
}

bool OVJsonSerializer::readTimeline(const QByteArray &data, Timeline *t) const
{
    return readTimeline(data, t, nullptr, nullptr);
}

bool OVJsonSerializer::readTimeline(const QByteArray &data, Timeline *t, OVReadBudget *given, QString *why) const
{
    LocalBudget local(given, data.size());
    return guarded(why, [&] {
        Json::Value root;
        if (!parse(data, &root, local.budget, why))
            return false;
        Reader r(local.budget, why);
        TimelineContent content;
        if (!readTimelineContent(r, root, &content))
            return false;
        commitTimeline(&content, t);
        return true;
    });
}
QByteArray OVJsonSerializer::writeLabelSet(const QList<Label *> &labels) const
{
    Json::Value root(Json::objectValue);
    Json::Value arr(Json::arrayValue);
    for (const Label *l : labels)
        arr.append(labelObject(ProjectSnapshot::label(l), false));
    root["labels"] = std::move(arr);
    return finish(compactJson(root));
}

bool OVJsonSerializer::readLabelSet(const QByteArray &data, QList<Label *> *labels) const
{
    return readLabelSet(data, labels, nullptr, nullptr);
}

bool OVJsonSerializer::readLabelSet(const QByteArray &data, QList<Label *> *labels, OVReadBudget *given, QString *why) const
{
    LocalBudget local(given, data.size());
    QList<Label *> out;
    const bool ok = guarded(why, [&] {
        Json::Value root;
        if (!parse(data, &root, local.budget, why))
            return false;
        Reader r(local.budget, why);
        bool listOk = true;
        const Json::Value *arr = r.list(root, "labels", QString(), &listOk);
        if (!listOk)
            return false;
        if (!arr)
            return r.fail(QString(), QStringLiteral("has no \"labels\""));
        return readLabels(r, *arr, false, &out);
    });
    if (!ok) {
        qDeleteAll(out);
        return false;
    }
    *labels = out;
    return true;
}
OV::Error OVJsonSerializer::saveLabelSetFile(const QString &path, const QList<Label *> &labels) const
{
    QSaveFile file(path);
    const QByteArray bytes = writeLabelSet(labels);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        qCWarning(lcProject) << "JsonSerializer: cannot write label set" << path << file.errorString();
        return OV::Error(5, QStringLiteral("Failed to save labels to:\n") + path);
    }
    return OV::Error::success();
}

OV::Error OVJsonSerializer::loadLabelSetFile(const QString &path, QList<Label *> *labels, OVReadBudget *budget)
{
    const QString failed = QStringLiteral("Failed to load labels from:\n") + path;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcProject) << "JsonSerializer: cannot open label set" << path << file.errorString();
        return OV::Error(5, failed + QStringLiteral("\n\n") + file.errorString());
    }
    LocalBudget local(budget, file.size());
    QByteArray bytes;
    QString why;
    if (!local.budget->takeText(file.size())) {
        why = local.budget->why();
    } else {
        guarded(&why, [&] {
            bytes = file.readAll();
            return true;
        });
    }
    if (why.isEmpty() && bytes.size() != file.size())
        why = QStringLiteral("the file could not be read whole");
    // The file's own bytes were counted above; the reader counts what they inflate to.
    if (why.isEmpty() && !OVJsonSerializer().readLabelSet(bytes, labels, local.budget, &why) && why.isEmpty())
        why = QStringLiteral("not a label set");
    if (!why.isEmpty()) {
        qCWarning(lcProject).noquote() << "JsonSerializer: label set" << path << "refused:" << why;
        if (local.budget->isCancelled())
            return OV::Error(Cancelled, QStringLiteral("Loading was cancelled."));
        return OV::Error(5, failed + QStringLiteral("\n\n") + why);
    }
    return OV::Error::success();
}

bool OVJsonSerializer::isWrapped(const QByteArray &document) { return document.startsWith(EnvelopeMagic); }

QByteArray OVJsonSerializer::wrap(const QByteArray &json, int level)
{
    z_stream zs {};
    if (deflateInit2(&zs, std::clamp(level, 1, 9), Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return QByteArray();
    QByteArray out;
    out.resize(EnvelopeHeaderSize + qsizetype(deflateBound(&zs, uLong(json.size()))));
    zs.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(json.constData()));
    zs.avail_in = uInt(json.size());
    zs.next_out = reinterpret_cast<Bytef *>(out.data() + EnvelopeHeaderSize);
    zs.avail_out = uInt(out.size() - EnvelopeHeaderSize);
    const int rc = deflate(&zs, Z_FINISH);
    const qsizetype produced = qsizetype(zs.total_out);
    deflateEnd(&zs);
    if (rc != Z_STREAM_END)
        return QByteArray();
    out.resize(EnvelopeHeaderSize + produced);
    std::memcpy(out.data(), EnvelopeMagic, 4);
    const QByteArray digest = QCryptographicHash::hash(
        QByteArrayView(out.constData() + EnvelopeHeaderSize, produced), QCryptographicHash::Md5);
    std::memcpy(out.data() + 4, digest.constData(), 16);
    return out;
}

bool OVJsonSerializer::unwrap(const QByteArray &document, QByteArray *json)
{
    return unwrap(document, json, nullptr, nullptr);
}

bool OVJsonSerializer::unwrap(const QByteArray &document, QByteArray *json, OVReadBudget *given, QString *why)
{
    LocalBudget local(given, document.size());
    OVReadBudget *budget = local.budget;
    auto fail = [why](const QString &reason) {
        if (why && why->isEmpty())
            *why = reason;
        return false;
    };
    ValueCounter counter;
    if (!isWrapped(document)) {
        if (!budget->takeText(document.size()))
            return fail(budget->why());
        if (!counter.feed(document.constData(), document.size()))
            return fail(QStringLiteral("a control character inside a text"));
        if (!budget->takeValues(counter.takeNew()))
            return fail(budget->why());
        *json = document;
        return true;
    }
    if (document.size() < EnvelopeHeaderSize)
        return fail(QStringLiteral("the compressed envelope is truncated"));
    const QByteArrayView body(document.constData() + EnvelopeHeaderSize, document.size() - EnvelopeHeaderSize);
    const QByteArray digest = QCryptographicHash::hash(body, QCryptographicHash::Md5);
    if (std::memcmp(digest.constData(), document.constData() + 4, 16) != 0)
        return fail(QStringLiteral("the compressed envelope's digest does not match its content"));

    z_stream zs {};
    if (inflateInit2(&zs, 47) != Z_OK)
        return fail(QStringLiteral("the decompressor could not start"));
    // The text is inflated in steps, each counted against the budget before the next, so a
    // document that inflates beyond what its file may hold is stopped at its allowance.
    constexpr qsizetype Step = 1 << 20;
    const qint64 ownAllowance = OVReadBudget::documentAllowance(document.size());
    QByteArray out;
    zs.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(body.data()));
    zs.avail_in = uInt(body.size());
    int rc = Z_OK;
    qsizetype produced = 0;
    QString reason;
    try {
        out.resize(std::min<qsizetype>(Step, std::max<qsizetype>(4096, body.size() * 4)));
        while (true) {
            if (produced == out.size())
                out.resize(out.size() + std::min<qsizetype>(out.size(), 16 * Step));
            zs.next_out = reinterpret_cast<Bytef *>(out.data() + produced);
            zs.avail_out = uInt(std::min<qsizetype>(out.size() - produced, Step));
            rc = inflate(&zs, Z_NO_FLUSH);
            const qsizetype now = qsizetype(zs.total_out);
            if (now > ownAllowance) {
                reason = QStringLiteral("the document inflates to more than %1 times its size").arg(OVReadBudget::MaxInflateRatio);
                break;
            }
            if (!budget->takeText(now - produced)) {
                reason = budget->why();
                break;
            }
            if (!counter.feed(out.constData() + produced, now - produced)) {
                reason = QStringLiteral("a control character inside a text");
                break;
            }
            produced = now;
            if (!budget->takeValues(counter.takeNew())) {
                reason = budget->why();
                break;
            }
            if (rc == Z_STREAM_END)
                break;
            if (rc != Z_OK && rc != Z_BUF_ERROR) {
                reason = QStringLiteral("the compressed body is damaged");
                break;
            }
            if (rc == Z_BUF_ERROR && zs.avail_in == 0 && zs.avail_out > 0) {
                reason = QStringLiteral("the compressed body is truncated");
                break;
            }
        }
    } catch (const std::bad_alloc &) {
        reason = QStringLiteral("not enough memory to inflate the document");
    }
    inflateEnd(&zs);
    if (!reason.isEmpty())
        return fail(reason);
    if (produced == 0)
        return fail(QStringLiteral("the compressed body inflates to nothing"));
    if (zs.avail_in != 0)
        return fail(QStringLiteral("bytes follow the compressed body"));
    out.resize(produced);
    *json = std::move(out);
    return true;
}
