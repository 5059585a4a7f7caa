#pragma once

#include <QObject>
#include <QString>

namespace OVProject {

// Text identifier of every model node; empty means "no node". Registered under the name
// "OVProject::Id" so that signals declared with it can be queued across threads.
using Id = QString;

// Registers the model's meta-types (OVProject::Id and the node pointers). Idempotent and cheap;
// node, group and state constructors call it, so nobody else has to.
void registerMetaTypes();

class BaseNode : public QObject
{
    Q_OBJECT
public:
    explicit BaseNode(const Id &id = Id(), QObject *parent = nullptr);

    // Fixed identifiers of the concrete classes; files and other tools compare these numbers.
    enum NodeType {
        ProjectType = 58,
        SegmentType = 10033,
        LabelType = 10055,
        SegmentGroupType = 10112,
        UtteranceType = 10143,
        TimelineType = 10194,
    };

    virtual int nodeType() const = 0;
    // Copies the content of a node of the same concrete class; false (and no change) otherwise.
    virtual bool copyFrom(const BaseNode *other) = 0;
    // Lower-case hex MD5 of the node's field texts in a fixed order.
    virtual QString contentHash() const = 0;

    Id id() const { return m_id; }
    // Owners find their nodes by id through indexes of their own; a new id reaches them through
    // idChanged(), whoever sets it.
    void setId(const Id &id);

    // A new unique id (a UUID without braces).
    static Id newId();

protected:
    static QString md5Hex(const QString &text);
    // After every change of the id; m_id already holds the new one.
    virtual void idChanged(const Id &oldId);

    Id m_id;
};

} // namespace OVProject
