#include "project/basenode.h"

#include "project/label.h"
#include "project/segment.h"
#include "project/timeline.h"

#include <QCryptographicHash>
#include <QMetaType>
#include <QUuid>

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

Id BaseNode::newId() { return QUuid::createUuid().toString(QUuid::WithoutBraces); }

QString BaseNode::md5Hex(const QString &text)
{
    return QString::fromLatin1(QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Md5).toHex());
}

} // namespace OVProject
