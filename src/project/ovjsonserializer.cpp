#include "project/ovjsonserializer.h"

#include "project/label.h"
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

#include <json/json.h>
#include <zlib.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

using namespace OVProject;

namespace {

const char EnvelopeMagic[] = "CMP0";
constexpr int EnvelopeHeaderSize = 20;

// ---- reading helpers: tolerant of wrong types, never throwing ----

const Json::Value *member(const Json::Value &object, const char *key)
{
    if (!object.isObject())
        return nullptr;
    return object.find(key, key + std::strlen(key));
}

QString text(const Json::Value *v, const QString &fallback = QString())
{
    if (!v || v->isNull())
        return fallback;
    switch (v->type()) {
    case Json::stringValue: {
        const char *b = nullptr;
        const char *e = nullptr;
        v->getString(&b, &e);
        return QString::fromUtf8(b, qsizetype(e - b));
    }
    case Json::intValue:
        return QString::number(v->asLargestInt());
    case Json::uintValue:
        return QString::number(v->asLargestUInt());
    case Json::realValue:
        return QString::number(v->asDouble(), 'g', 17);
    case Json::booleanValue:
        return v->asBool() ? QStringLiteral("true") : QStringLiteral("false");
    default:
        // Arrays and objects have no text form.
        return fallback;
    }
}

QString text(const Json::Value &object, const char *key, const QString &fallback = QString())
{
    return text(member(object, key), fallback);
}

// A decimal number given as a JSON number or as text; `fallback` when missing or not a number.
double number(const Json::Value *v, double fallback)
{
    if (!v || v->isNull())
        return fallback;
    double result = fallback;
    if (v->isString()) {
        const char *b = nullptr;
        const char *e = nullptr;
        v->getString(&b, &e);
        const auto [ptr, ec] = std::from_chars(b, e, result);
        if (ec != std::errc() || ptr != e) {
            bool ok = false;
            result = QString::fromUtf8(b, qsizetype(e - b)).trimmed().toDouble(&ok);
            if (!ok)
                return fallback;
        }
    } else if (v->isNumeric() || v->isBool()) {
        result = v->isBool() ? (v->asBool() ? 1.0 : 0.0) : v->asDouble();
    } else {
        return fallback;
    }
    return std::isfinite(result) ? result : fallback;
}

qint64 integer(const Json::Value *v, qint64 fallback)
{
    if (!v || v->isNull())
        return fallback;
    if (v->isInt64())
        return v->asInt64();
    if (v->isUInt64())
        return std::numeric_limits<qint64>::max();
    if (v->isString()) {
        const QString t = text(v).trimmed();
        bool ok = false;
        const qint64 i = t.toLongLong(&ok);
        if (ok)
            return i;
    }
    const double d = number(v, std::numeric_limits<double>::quiet_NaN());
    if (std::isnan(d))
        return fallback;
    if (d >= 9.2e18)
        return std::numeric_limits<qint64>::max();
    if (d <= -9.2e18)
        return std::numeric_limits<qint64>::min();
    return qint64(d);
}

int integer32(const Json::Value *v, int fallback)
{
    const qint64 i = integer(v, fallback);
    return int(std::clamp<qint64>(i, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

double time(const Json::Value &object, const char *key) { return number(member(object, key), 0.0); }

QStringList textList(const Json::Value *v)
{
    QStringList out;
    if (!v || !v->isArray())
        return out;
    out.reserve(qsizetype(v->size()));
    for (const Json::Value &e : *v)
        out.append(text(&e));
    return out;
}

bool parse(const QByteArray &document, Json::Value *root)
{
    QByteArray json;
    if (!OVJsonSerializer::unwrap(document, &json)) {
        qWarning() << "JsonSerializer: damaged document envelope";
        return false;
    }
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    try {
        if (!reader->parse(json.constData(), json.constData() + json.size(), root, &errors)) {
            qWarning() << "JsonSerializer: parse error:" << QString::fromStdString(errors).trimmed();
            return false;
        }
    } catch (const std::exception &e) {
        qWarning() << "JsonSerializer: parse error:" << e.what();
        return false;
    }
    return true;
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

// Reads a label object; the segments only when the member is there.
Label *readLabel(const Json::Value &o, bool withSortOrder, int position)
{
    auto *l = new Label(text(o, "id"));
    l->setName(text(o, "name"));
    l->setDescription(text(o, "desc"));
    l->setColor(QColor::fromRgba(QRgb(quint32(integer(member(o, "color"), 0)))));
    const qint64 key = integer(member(o, "key"), 0);
    l->setKey(key > 0 && key <= 0xffff ? QChar(char16_t(key)) : QChar());
    l->setSortOrder(withSortOrder ? integer32(member(o, "sortOrder"), position) : position);
    if (const Json::Value *segs = member(o, "segments"); segs && segs->isArray()) {
        QList<Segment *> list;
        list.reserve(qsizetype(segs->size()));
        for (const Json::Value &so : *segs) {
            if (!so.isObject())
                continue;
            auto *s = new Segment(time(so, "start"), time(so, "end"), text(so, "id"));
            s->setDescription(text(so, "desc"));
            list.append(s);
        }
        l->addSegments(list);
    }
    return l;
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
    Json::Value root;
    if (!parse(data, &root) || !root.isObject())
        return false;
    p->setTitle(text(root, "title"));
    p->setDescription(text(root, "desc"));
    p->setId(text(root, "id"));
    p->setTimelineIds(textList(member(root, "timeline_ids")));
    p->setVideoId(integer32(member(root, "video_id"), -1));
    p->setVideoPath(text(root, "video_path"));
    p->setUseRelativePath(integer(member(root, "userelpath"), 1) != 0);
    p->setOnlineId(integer(member(root, "online_id"), -1));
    p->setProjectType(integer32(member(root, "project_type"), 0));
    p->setMaxTextWidth(integer32(member(root, "max_text_lw"), 80));
    p->setOwner(text(root, "owner"));
    p->setOfflineUser(text(root, "offlineUser"));
    const double length = time(root, "video_length");
    p->setVideoLength(std::isfinite(length) && length > 0 ? length : 0.0);
    return true;
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
    Json::Value root;
    if (!parse(data, &root) || !root.isObject())
        return false;
    // The document is sound from here on: replace the timeline's content.
    while (!t->labels().isEmpty())
        t->removeLabel(t->labels().constLast());
    while (!t->utterances().isEmpty())
        t->removeUtterance(t->utterances().constLast());
    while (!t->segmentGroups().isEmpty())
        t->removeSegmentGroup(t->segmentGroups().constLast());

    if (const QString id = text(root, "id"); !id.isEmpty())
        t->setId(id);
    t->setOwner(text(root, "owner"));
    t->setBlind(integer(member(root, "isBlind"), 0) != 0);

    if (const Json::Value *labels = member(root, "labels"); labels && labels->isArray()) {
        int position = 0;
        for (const Json::Value &lo : *labels) {
            if (lo.isObject())
                t->addLabel(readLabel(lo, true, position++));
        }
    }
    if (const Json::Value *utterances = member(root, "utterances"); utterances && utterances->isArray()) {
        QList<Utterance *> list;
        list.reserve(qsizetype(utterances->size()));
        for (const Json::Value &uo : *utterances) {
            if (!uo.isObject())
                continue;
            auto *u = new Utterance(text(uo, "id"));
            u->setText(text(uo, "text"));
            u->setSpeaker(text(uo, "speaker"));
            u->setStartTime(time(uo, "startTime"));
            u->setEndTime(time(uo, "endTime"));
            list.append(u);
        }
        t->addUtterances(list);
    }
    if (const Json::Value *groups = member(root, "segment_groups"); groups && groups->isArray()) {
        for (const Json::Value &go : *groups) {
            if (!go.isObject())
                continue;
            auto *g = new SegmentGroup(text(go, "id"));
            g->setName(text(go, "name"));
            if (const Json::Value *ids = member(go, "segids"))
                g->setSegmentIds(textList(ids));
            t->addSegmentGroup(g);
        }
    }
    t->setHiddenSegments(textList(member(root, "hidden_segments")));
    t->setHiddenLabels(textList(member(root, "hidden_labels")));
    t->setHiddenUtterances(textList(member(root, "hidden_utterances")));
    t->setHiddenUtteranceUsers(textList(member(root, "hidden_uttusers")));

    for (const QString &key : t->binaryData().keys())
        t->removeBinaryData(key);
    if (const Json::Value *binary = member(root, "binary_data"); binary && binary->isArray()) {
        for (const Json::Value &bo : *binary) {
            if (!bo.isObject())
                continue;
            t->setBinaryData(text(bo, "key"), QByteArray::fromBase64(text(bo, "data").toLatin1()));
        }
    }
    return true;
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
    Json::Value root;
    if (!parse(data, &root) || !root.isObject())
        return false;
    const Json::Value *arr = member(root, "labels");
    if (!arr)
        return false;
    QList<Label *> out;
    if (arr->isArray()) {
        int position = 0;
        for (const Json::Value &lo : *arr) {
            if (lo.isObject())
                out.append(readLabel(lo, false, position++));
        }
    }
    *labels = out;
    return true;
}

OV::Error OVJsonSerializer::saveLabelSetFile(const QString &path, const QList<Label *> &labels) const
{
    QSaveFile file(path);
    const QByteArray bytes = writeLabelSet(labels);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        qWarning() << "JsonSerializer: cannot write label set" << path << file.errorString();
        return OV::Error(5, QStringLiteral("Failed to save labels to:\n") + path);
    }
    return OV::Error::success();
}

OV::Error OVJsonSerializer::loadLabelSetFile(const QString &path, QList<Label *> *labels)
{
    const OV::Error failed(5, QStringLiteral("Failed to load labels from:\n") + path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning() << "JsonSerializer: cannot open label set" << path << file.errorString();
        return failed;
    }
    if (file.size() > MaxInflatedSize) {
        qWarning() << "JsonSerializer: label set too large" << path << file.size();
        return failed;
    }
    if (!OVJsonSerializer().readLabelSet(file.readAll(), labels)) {
        qWarning() << "JsonSerializer: not a label set" << path;
        return failed;
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
    if (!isWrapped(document)) {
        *json = document;
        return true;
    }
    if (document.size() < EnvelopeHeaderSize)
        return false;
    const QByteArrayView body(
        document.constData() + EnvelopeHeaderSize, document.size() - EnvelopeHeaderSize);
    const QByteArray digest = QCryptographicHash::hash(body, QCryptographicHash::Md5);
    if (std::memcmp(digest.constData(), document.constData() + 4, 16) != 0)
        return false;

    z_stream zs {};
    if (inflateInit2(&zs, 47) != Z_OK)
        return false;
    QByteArray out;
    out.resize(std::min<qsizetype>(MaxInflatedSize, std::max<qsizetype>(4096, body.size() * 6)));
    zs.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(body.data()));
    zs.avail_in = uInt(body.size());
    int rc = Z_OK;
    qsizetype produced = 0;
    while (true) {
        if (produced == out.size()) {
            if (out.size() >= MaxInflatedSize) {
                qWarning() << "JsonSerializer: document inflates beyond" << MaxInflatedSize << "bytes";
                rc = Z_MEM_ERROR;
                break;
            }
            out.resize(std::min<qsizetype>(MaxInflatedSize, out.size() * 2));
        }
        zs.next_out = reinterpret_cast<Bytef *>(out.data() + produced);
        zs.avail_out = uInt(std::min<qsizetype>(out.size() - produced, 1 << 30));
        rc = inflate(&zs, Z_NO_FLUSH);
        produced = qsizetype(zs.total_out);
        if (rc == Z_STREAM_END || (rc != Z_OK && rc != Z_BUF_ERROR))
            break;
        if (rc == Z_BUF_ERROR && zs.avail_in == 0 && zs.avail_out > 0)
            break; // truncated body: no input left and room to spare, yet no end
    }
    inflateEnd(&zs);
    if (rc != Z_STREAM_END || produced == 0)
        return false;
    out.resize(produced);
    *json = std::move(out);
    return true;
}
