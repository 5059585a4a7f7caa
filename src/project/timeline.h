#pragma once

#include "project/basenode.h"

#include <QByteArray>
#include <QChar>
#include <QList>
#include <QMultiHash>
#include <QMap>
#include <QStringList>

namespace OVProject {

class Label;
class Segment;
class SegmentGroup;
class Utterance;

// The coding of one user: labels (with their segments), utterances, segment groups, what the
// user has hidden, and opaque attachments of other parts of the program.
class Timeline : public BaseNode
{
    Q_OBJECT
public:
    explicit Timeline(const Id &id = Id(), QObject *parent = nullptr);
    ~Timeline() override;

    int nodeType() const override { return TimelineType; }
    // Copies owner, blind flag, hidden lists and binary data; children and the id stay.
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    QString owner() const { return m_owner; }
    bool isBlind() const { return m_blind; }
    void setOwner(const QString &owner);
    void setBlind(bool blind);

    // Labels, in display order (owned).
    const QList<Label *> &labels() const { return m_labels; }
    Label *label(const Id &id) const;
    // The first label coded by `key`, compared in upper case; null if none.
    Label *labelForKey(QChar key) const;
    void addLabel(Label *label);
    void insertLabel(int index, Label *label);
    void moveLabel(int from, int to);
    void removeLabel(Label *label);
    Label *takeLabel(Label *label);
    // Gives the four starting labels "Label 1".."Label 4" (keys A-D; blue, red, yellow, green).
    void addDefaultLabels();

    // The segment with this id in any label; null if none. Keyboard coding and every undo step
    // look segments up by id among hundreds of thousands, so the timeline keeps an index by id.
    // Labels report every segment that comes, goes or gets a new id; a bulk add only drops the
    // index, and the next lookup rebuilds it once.
    Segment *findSegment(const Id &id) const;
    // Rebuilds what the id index should hold and compares. A text naming the first difference,
    // empty if none (also while the index is dropped, as there is nothing stale to find then).
    QString checkSegmentIndex() const;

    const QList<Utterance *> &utterances() const { return m_utterances; }
    Utterance *utterance(const Id &id) const;
    void addUtterance(Utterance *utterance);
    void addUtterances(const QList<Utterance *> &utterances);
    void removeUtterance(Utterance *utterance);
    // Bulk forms for imports and undo: one utterancesChanged() for the lot, so that a view
    // rebuilds once and not once per utterance.
    // `at` pairs each utterance with its index in the resulting list, in ascending index order.
    void insertUtterances(const QList<QPair<int, Utterance *>> &at);
    void removeUtterances(const QList<Utterance *> &utterances);

    const QList<SegmentGroup *> &segmentGroups() const { return m_groups; }
    SegmentGroup *segmentGroup(const Id &id) const;
    void addSegmentGroup(SegmentGroup *group);
    void removeSegmentGroup(SegmentGroup *group);

    // What the user has hidden, each list without duplicates, in the order hidden.
    const QStringList &hiddenSegments() const { return m_hiddenSegments; }
    const QStringList &hiddenLabels() const { return m_hiddenLabels; }
    const QStringList &hiddenUtterances() const { return m_hiddenUtterances; }
    const QStringList &hiddenUtteranceUsers() const { return m_hiddenUtteranceUsers; }
    bool isSegmentHidden(const Id &id) const { return m_hiddenSegments.contains(id); }
    bool isLabelHidden(const Id &id) const { return m_hiddenLabels.contains(id); }
    bool isUtteranceHidden(const Id &id) const { return m_hiddenUtterances.contains(id); }
    bool isUtteranceUserHidden(const QString &user) const { return m_hiddenUtteranceUsers.contains(user); }
    void setSegmentHidden(const Id &id, bool hidden);
    void setLabelHidden(const Id &id, bool hidden);
    void setUtteranceHidden(const Id &id, bool hidden);
    void setUtteranceUserHidden(const QString &user, bool hidden);
    void setHiddenSegments(const QStringList &ids);
    void setHiddenLabels(const QStringList &ids);
    void setHiddenUtterances(const QStringList &ids);
    void setHiddenUtteranceUsers(const QStringList &users);

    // Attachments by key.
    const QMap<QString, QByteArray> &binaryData() const { return m_binaryData; }
    QByteArray binaryData(const QString &key) const { return m_binaryData.value(key); }
    void setBinaryData(const QString &key, const QByteArray &data);
    void removeBinaryData(const QString &key);

Q_SIGNALS:
    void segmentGroupsChanged();
    void utterancesChanged();
    void labelsChanged();
    void labelDetailsChanged();
    void langsChanged();
    void segmentsChanged();
    // The timeline's own fields (owner, blind flag, binary data).
    void changed();

public Q_SLOTS:
    void onSegmentGroupDestroyed();
    void onLabelDestroyed();
    void onUtteranceDestroyed();
    void onObjectDestroyed(QObject *object);

private:
    friend class Label;
    // Called by the labels of m_labels only.
    void indexSegment(Segment *segment);
    void unindexSegment(Segment *segment, const Id &id);
    void unindexSegments(const Label *label);
    void reindexSegment(Segment *segment, const Id &oldId);
    void dropSegmentIndex();
    void ensureSegmentIndex() const;
    Segment *indexedSegment(const Id &id, const Label *label) const;

    void attachLabel(Label *label);
    void attachUtterance(Utterance *utterance);
    static bool setInList(QStringList &list, const QString &value, bool present);

    QString m_owner;
    bool m_blind = false;
    QList<Label *> m_labels;
    QList<Utterance *> m_utterances;
    QList<SegmentGroup *> m_groups;
    QStringList m_hiddenSegments;
    QStringList m_hiddenLabels;
    QStringList m_hiddenUtterances;
    QStringList m_hiddenUtteranceUsers;
    QMap<QString, QByteArray> m_binaryData;

    // Multi: ids are unique in a sound project, but a damaged one must not lose a segment from
    // the index when its twin goes.
    mutable QMultiHash<Id, Segment *> m_segmentsById;
    mutable bool m_segmentIndexValid = true;
};

} // namespace OVProject
