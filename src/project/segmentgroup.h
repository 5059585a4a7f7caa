#pragma once

#include "project/basenode.h"

#include <QList>

namespace OVProject {

// A named group of segments of one timeline; it refers to them by id and owns none.
class SegmentGroup : public BaseNode
{
    Q_OBJECT
public:
    explicit SegmentGroup(const Id &id = Id(), QObject *parent = nullptr);

    int nodeType() const override { return SegmentGroupType; }
    // Copies name and member ids; the id stays.
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    QString name() const { return m_name; }
    const QList<Id> &segmentIds() const { return m_segmentIds; }
    bool contains(const Id &segmentId) const { return m_segmentIds.contains(segmentId); }

    void setName(const QString &name);
    void setSegmentIds(const QList<Id> &ids);
    void addSegmentId(const Id &segmentId);
    void removeSegmentId(const Id &segmentId);

Q_SIGNALS:
    void changed();

private:
    QString m_name;
    QList<Id> m_segmentIds;
};

} // namespace OVProject
