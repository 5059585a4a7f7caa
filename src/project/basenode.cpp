#include "project/basenode.h"

#include "project/label.h"
#include "project/segment.h"
#include "project/timeline.h"

#include <QCryptographicHash>
#include <QMetaType>
#include <QUuid>

#include <utility>

namespace OVProject {

void registerMetaTypes()
{
    static const bool done = [] {
        // A typedef registration: queued connections look the type up by the name written in the
        // signal's signature, which is "OVProject::Id", not "QString".
        qRegisterMetaType<QString>("OVProject::Id");
        // Node pointers travel in the views' signals (labelDoubleClicked(OVProject::Id,OVProject::Segment*,QPoint)).
        qRegisterMetaType<OVProject::Segment *>("OVProject::Segment*");
        qRegisterMetaType<OVProject::Label *>("OVProject::Label*");
        qRegisterMetaType<OVProject::Timeline *>("OVProject::Timeline*");
        return true;
    }();
    Q_UNUSED(done);
}

BaseNode::BaseNode(const Id &id, QObject *parent)
    : QObject(parent)
    , m_id(id.isEmpty() ? newId() : id)
{
    registerMetaTypes();
}

void BaseNode::setId(const Id &id)
{
    if (id == m_id)
        return;
    const Id old = std::exchange(m_id, id);
    idChanged(old);
}

void BaseNode::idChanged(const Id &oldId) { Q_UNUSED(oldId); }

Id BaseNode::newId() { return QUuid::createUuid().toString(QUuid::WithoutBraces); }

QString BaseNode::md5Hex(const QString &text)
{
    return QString::fromLatin1(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Md5).toHex());
}

} // namespace OVProject
