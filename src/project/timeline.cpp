#include "project/timeline.h"

#include "project/label.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/utterance.h"

#include <QSet>

#include <QCryptographicHash>

#include <algorithm>

namespace OVProject {

namespace {
template <typename T> T *findById(const QList<T *> &list, const Id &id)
{
    for (T *n : list) {
        if (n->id() == id)
            return n;
    }
    return nullptr;
}

// Drops `object` from `list` by address; the object may already be only a QObject.
template <typename T> bool dropByAddress(QList<T *> &list, const QObject *object)
{
    const auto it = std::find_if(
        list.begin(), list.end(), [object](T *n) { return static_cast<const QObject *>(n) == object; });
    if (it == list.end())
        return false;
    list.erase(it);
    return true;
}
} // namespace

Timeline::Timeline(const Id &id, QObject *parent)
    : BaseNode(id, parent)
{
}

Timeline::~Timeline()
{
    // The labels die after this object's members, in ~QObject: keep them off the gone index.
    for (Label *l : std::as_const(m_labels))
        l->m_idIndexOwner = nullptr;
}

bool Timeline::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const Timeline *>(other);
    if (!o)
        return false;
    m_owner = o->m_owner;
    m_blind = o->m_blind;
    m_hiddenSegments = o->m_hiddenSegments;
    m_hiddenLabels = o->m_hiddenLabels;
    m_hiddenUtterances = o->m_hiddenUtterances;
    m_hiddenUtteranceUsers = o->m_hiddenUtteranceUsers;
    m_binaryData = o->m_binaryData;
    Q_EMIT changed();
    return true;
}

QString Timeline::contentHash() const
{
    QString text = m_id + m_owner + (m_blind ? QStringLiteral("1") : QStringLiteral("0"));
    for (const Label *l : m_labels) {
        text += l->contentHash();
        for (const Segment *s : l->segments())
            text += s->contentHash();
    }
    for (const Utterance *u : m_utterances)
        text += u->contentHash();
    for (const SegmentGroup *g : m_groups)
        text += g->contentHash();
    const QChar sep(0x1f);
    text += m_hiddenSegments.join(sep) + sep + m_hiddenLabels.join(sep) + sep + m_hiddenUtterances.join(sep)
        + sep + m_hiddenUtteranceUsers.join(sep);
    for (auto it = m_binaryData.cbegin(); it != m_binaryData.cend(); ++it)
        text += it.key()
            + QString::fromLatin1(QCryptographicHash::hash(it.value(), QCryptographicHash::Md5).toHex());
    return md5Hex(text);
}

void Timeline::setOwner(const QString &owner)
{
    if (owner == m_owner)
        return;
    m_owner = owner;
    Q_EMIT changed();
}

void Timeline::setBlind(bool blind)
{
    if (blind == m_blind)
        return;
    m_blind = blind;
    Q_EMIT changed();
}

Label *Timeline::label(const Id &id) const { return findById(m_labels, id); }

Label *Timeline::labelForKey(QChar key) const
{
    for (Label *l : m_labels) {
        if (l->matchesKey(key))
            return l;
    }
    return nullptr;
}

void Timeline::attachLabel(Label *label)
{
    if (Timeline *old = label->timeline(); old && old != this)
        old->takeLabel(label);
    else if (label->m_idIndexOwner && label->m_idIndexOwner != this)
        label->m_idIndexOwner->takeLabel(label);
    label->setParent(this);
    label->m_idIndexOwner = this;
    if (label->segmentCount() > 1)
        dropSegmentIndex();
    else if (label->segmentCount() == 1)
        indexSegment(label->segments().first());
    connect(label, &QObject::destroyed, this, &Timeline::onLabelDestroyed);
    connect(label, &Label::changed, this, &Timeline::labelDetailsChanged);
    connect(label, &Label::segmentsChanged, this, &Timeline::segmentsChanged);
}

void Timeline::addLabel(Label *label) { insertLabel(int(m_labels.size()), label); }

void Timeline::insertLabel(int index, Label *label)
{
    if (!label || m_labels.contains(label))
        return;
    attachLabel(label);
    m_labels.insert(std::clamp(index, 0, int(m_labels.size())), label);
    Q_EMIT labelsChanged();
}

void Timeline::moveLabel(int from, int to)
{
    if (from < 0 || from >= m_labels.size() || to < 0 || to >= m_labels.size() || from == to)
        return;
    m_labels.move(from, to);
    Q_EMIT labelsChanged();
}

Label *Timeline::takeLabel(Label *label)
{
    if (!label || !m_labels.removeOne(label))
        return nullptr;
    disconnect(label, nullptr, this, nullptr);
    unindexSegments(label);
    label->m_idIndexOwner = nullptr;
    label->setParent(nullptr);
    Q_EMIT labelsChanged();
    return label;
}

void Timeline::removeLabel(Label *label) { delete takeLabel(label); }

void Timeline::addDefaultLabels()
{
    static const struct
    {
        char key;
        Qt::GlobalColor color;
    } defaults[] = { { 'A', Qt::blue }, { 'B', Qt::red }, { 'C', Qt::yellow }, { 'D', Qt::green } };
    int n = 0;
    for (const auto &d : defaults) {
        auto *l = new Label;
        l->setName(QStringLiteral("Label %1").arg(++n));
        l->setKey(QChar::fromLatin1(d.key));
        l->setColor(QColor(d.color));
        l->setSortOrder(n - 1);
        addLabel(l);
    }
}

Segment *Timeline::findSegment(const Id &id) const
{
    ensureSegmentIndex();
    return m_segmentsById.value(id, nullptr);
}

Segment *Timeline::indexedSegment(const Id &id, const Label *label) const
{
    ensureSegmentIndex();
    for (auto it = m_segmentsById.constFind(id); it != m_segmentsById.cend() && it.key() == id; ++it) {
        if (it.value()->label() == label)
            return it.value();
    }
    return nullptr;
}

void Timeline::ensureSegmentIndex() const
{
    if (m_segmentIndexValid)
        return;
    qsizetype count = 0;
    for (const Label *l : m_labels)
        count += l->segmentCount();
    m_segmentsById.clear();
    m_segmentsById.reserve(count);
    for (const Label *l : m_labels) {
        for (Segment *s : l->segments())
            m_segmentsById.insert(s->id(), s);
    }
    m_segmentIndexValid = true;
}

void Timeline::indexSegment(Segment *segment)
{
    if (m_segmentIndexValid)
        m_segmentsById.insert(segment->id(), segment);
}

void Timeline::unindexSegment(Segment *segment, const Id &id)
{
    if (m_segmentIndexValid)
        m_segmentsById.remove(id, segment);
}

void Timeline::unindexSegments(const Label *label)
{
    if (!m_segmentIndexValid)
        return;
    for (Segment *s : label->segments())
        m_segmentsById.remove(s->id(), s);
}

void Timeline::reindexSegment(Segment *segment, const Id &oldId)
{
    if (!m_segmentIndexValid)
        return;
    m_segmentsById.remove(oldId, segment);
    m_segmentsById.insert(segment->id(), segment);
}

void Timeline::dropSegmentIndex()
{
    m_segmentsById.clear();
    m_segmentIndexValid = false;
}

QString Timeline::checkSegmentIndex() const
{
    qsizetype count = 0;
    for (const Label *l : m_labels) {
        if (l->m_idIndexOwner != this)
            return QStringLiteral("label %1 does not report to its timeline's id index").arg(l->id());
        count += l->segmentCount();
        if (!m_segmentIndexValid)
            continue;
        for (Segment *s : l->segments()) {
            if (!m_segmentsById.contains(s->id(), s))
                return QStringLiteral("segment %1 of label %2 is not indexed under its id").arg(s->id(), l->id());
        }
    }
    if (m_segmentIndexValid && m_segmentsById.size() != count)
        return QStringLiteral("the id index holds %1 entries for %2 segments").arg(m_segmentsById.size()).arg(count);
    return QString();
}

Utterance *Timeline::utterance(const Id &id) const { return findById(m_utterances, id); }

void Timeline::attachUtterance(Utterance *utterance)
{
    utterance->setParent(this);
    m_utterances.append(utterance);
    connect(utterance, &QObject::destroyed, this, &Timeline::onUtteranceDestroyed);
    connect(utterance, &Utterance::changed, this, &Timeline::utterancesChanged);
}

void Timeline::addUtterance(Utterance *utterance)
{
    if (!utterance || m_utterances.contains(utterance))
        return;
    attachUtterance(utterance);
    Q_EMIT utterancesChanged();
}

void Timeline::addUtterances(const QList<Utterance *> &utterances)
{
    m_utterances.reserve(m_utterances.size() + utterances.size());
    bool any = false;
    for (Utterance *u : utterances) {
        if (!u || u->parent() == this)
            continue;
        attachUtterance(u);
        any = true;
    }
    if (any)
        Q_EMIT utterancesChanged();
}

void Timeline::insertUtterances(const QList<QPair<int, Utterance *>> &at)
{
    m_utterances.reserve(m_utterances.size() + at.size());
    bool any = false;
    for (const auto &[index, u] : at) {
        if (!u || u->parent() == this)
            continue;
        attachUtterance(u);
        // attachUtterance() appended it; move it where it belongs.
        m_utterances.move(m_utterances.size() - 1, qBound(0, index, int(m_utterances.size()) - 1));
        any = true;
    }
    if (any)
        Q_EMIT utterancesChanged();
}

void Timeline::removeUtterances(const QList<Utterance *> &utterances)
{
    const QSet<Utterance *> doomed(utterances.cbegin(), utterances.cend());
    const qsizetype before = m_utterances.size();
    m_utterances.removeIf([&doomed](Utterance *u) { return doomed.contains(u); });
    if (m_utterances.size() == before)
        return;
    for (Utterance *u : doomed) {
        if (u && u->parent() == this) {
            disconnect(u, nullptr, this, nullptr);
            delete u;
        }
    }
    Q_EMIT utterancesChanged();
}

void Timeline::removeUtterance(Utterance *utterance)
{
    if (!utterance || !m_utterances.removeOne(utterance))
        return;
    disconnect(utterance, nullptr, this, nullptr);
    delete utterance;
    Q_EMIT utterancesChanged();
}

SegmentGroup *Timeline::segmentGroup(const Id &id) const { return findById(m_groups, id); }

void Timeline::addSegmentGroup(SegmentGroup *group)
{
    if (!group || m_groups.contains(group))
        return;
    group->setParent(this);
    m_groups.append(group);
    connect(group, &QObject::destroyed, this, &Timeline::onSegmentGroupDestroyed);
    connect(group, &SegmentGroup::changed, this, &Timeline::segmentGroupsChanged);
    Q_EMIT segmentGroupsChanged();
}

void Timeline::removeSegmentGroup(SegmentGroup *group)
{
    if (!group || !m_groups.removeOne(group))
        return;
    disconnect(group, nullptr, this, nullptr);
    delete group;
    Q_EMIT segmentGroupsChanged();
}

bool Timeline::setInList(QStringList &list, const QString &value, bool present)
{
    if (present) {
        if (list.contains(value))
            return false;
        list.append(value);
        return true;
    }
    return list.removeAll(value) > 0;
}

void Timeline::setSegmentHidden(const Id &id, bool hidden)
{
    if (setInList(m_hiddenSegments, id, hidden))
        Q_EMIT segmentsChanged();
}

void Timeline::setLabelHidden(const Id &id, bool hidden)
{
    if (setInList(m_hiddenLabels, id, hidden))
        Q_EMIT labelsChanged();
}

void Timeline::setUtteranceHidden(const Id &id, bool hidden)
{
    if (setInList(m_hiddenUtterances, id, hidden))
        Q_EMIT utterancesChanged();
}

void Timeline::setUtteranceUserHidden(const QString &user, bool hidden)
{
    if (setInList(m_hiddenUtteranceUsers, user, hidden))
        Q_EMIT utterancesChanged();
}

void Timeline::setHiddenSegments(const QStringList &ids)
{
    m_hiddenSegments = ids;
    m_hiddenSegments.removeDuplicates();
    Q_EMIT segmentsChanged();
}

void Timeline::setHiddenLabels(const QStringList &ids)
{
    m_hiddenLabels = ids;
    m_hiddenLabels.removeDuplicates();
    Q_EMIT labelsChanged();
}

void Timeline::setHiddenUtterances(const QStringList &ids)
{
    m_hiddenUtterances = ids;
    m_hiddenUtterances.removeDuplicates();
    Q_EMIT utterancesChanged();
}

void Timeline::setHiddenUtteranceUsers(const QStringList &users)
{
    m_hiddenUtteranceUsers = users;
    m_hiddenUtteranceUsers.removeDuplicates();
    Q_EMIT utterancesChanged();
}

void Timeline::setBinaryData(const QString &key, const QByteArray &data)
{
    auto it = m_binaryData.find(key);
    if (it != m_binaryData.end() && it.value() == data)
        return;
    m_binaryData.insert(key, data);
    Q_EMIT changed();
}

void Timeline::removeBinaryData(const QString &key)
{
    if (m_binaryData.remove(key) > 0)
        Q_EMIT changed();
}

void Timeline::onSegmentGroupDestroyed() { onObjectDestroyed(sender()); }

void Timeline::onLabelDestroyed() { onObjectDestroyed(sender()); }

void Timeline::onUtteranceDestroyed() { onObjectDestroyed(sender()); }

void Timeline::onObjectDestroyed(QObject *object)
{
    // Called from destroyed(): the node is only a QObject by now, so it is found by address.
    if (!object)
        return;
    if (dropByAddress(m_labels, object)) {
        Q_EMIT labelsChanged();
        // Its segments went with it.
        Q_EMIT segmentsChanged();
    } else if (dropByAddress(m_utterances, object)) {
        Q_EMIT utterancesChanged();
    } else if (dropByAddress(m_groups, object)) {
        Q_EMIT segmentGroupsChanged();
    }
}

} // namespace OVProject
