#include "project/project.h"

#include "project/history.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"

namespace OVProject {

Project::Project(QObject *parent)
    : BaseNode(Id(), parent)
    , m_state(new State(this))
    , m_group(new TimelineGroup(this))
    , m_history(new History(this))
{
    m_id.clear();
}

template <typename T> void Project::assign(T &field, const T &value)
{
    if (field == value)
        return;
    field = value;
    Q_EMIT changed();
}

bool Project::copyFrom(const BaseNode *other)
{
    if (!other || other->nodeType() != nodeType())
        return false;
    const auto *o = qobject_cast<const Project *>(other);
    if (!o)
        return false;
    const bool typeChanged = m_projectType != o->m_projectType;
    m_id = o->m_id;
    m_projectType = o->m_projectType;
    m_maxTextWidth = o->m_maxTextWidth;
    m_onlineId = o->m_onlineId;
    m_title = o->m_title;
    m_description = o->m_description;
    m_videoId = o->m_videoId;
    m_videoPath = o->m_videoPath;
    m_videoLength = o->m_videoLength;
    m_useRelativePath = o->m_useRelativePath;
    m_timelineIds = o->m_timelineIds;
    m_owner = o->m_owner;
    m_offlineUser = o->m_offlineUser;
    if (typeChanged)
        Q_EMIT projectTypeChanged();
    Q_EMIT changed();
    return true;
}

QString Project::contentHash() const
{
    const QChar sep(0x1f);
    return md5Hex(m_id + sep + QString::number(m_projectType) + sep + QString::number(m_maxTextWidth) + sep
        + QString::number(m_onlineId) + sep + m_title + sep + m_description + sep + QString::number(m_videoId)
        + sep + m_videoPath + sep + QString::number(m_videoLength, 'f', 3) + sep + (m_useRelativePath ? u'1' : u'0') + sep + m_timelineIds.join(sep) + sep
        + m_owner + sep + m_offlineUser);
}

void Project::reset()
{
    const bool typeChanged = m_projectType != 0;
    m_id.clear();
    m_projectType = 0;
    m_maxTextWidth = NoTextWidthLimit;
    m_onlineId = -1;
    m_title.clear();
    m_description.clear();
    m_videoId = -1;
    m_videoPath.clear();
    m_videoLength = 0.0;
    m_useRelativePath = true;
    m_timelineIds.clear();
    m_owner.clear();
    m_offlineUser.clear();
    m_group->clear();
    m_history->clear();
    m_state->reset();
    if (typeChanged)
        Q_EMIT projectTypeChanged();
    Q_EMIT changed();
}

Timeline *Project::startNew(const QString &user)
{
    reset();
    m_id = newId();
    Timeline *t = createTimeline(user);
    m_state->setActiveUser(user);
    return t;
}

Timeline *Project::createTimeline(const QString &owner)
{
    auto *t = new Timeline;
    t->setOwner(owner);
    if (t->labels().isEmpty())
        t->addDefaultLabels();
    m_group->addTimeline(t);
    m_timelineIds.append(t->id());
    Q_EMIT changed();
    return t;
}

void Project::takeContentFrom(Project *other)
{
    if (!other || other == this)
        return;
    // Steps name timelines of the content being replaced.
    m_history->clear();
    m_group->clear();
    copyFrom(other);
    const QList<Timeline *> moving = other->timelineGroup()->timelines();
    for (Timeline *t : moving) {
        other->timelineGroup()->takeTimeline(t);
        m_group->addTimeline(t);
    }
}

void Project::setProjectType(int type)
{
    if (type == m_projectType)
        return;
    m_projectType = type;
    Q_EMIT projectTypeChanged();
}

void Project::setMaxTextWidth(int width) { assign(m_maxTextWidth, width); }
void Project::setOnlineId(qint64 id) { assign(m_onlineId, id); }
void Project::setTitle(const QString &title) { assign(m_title, title); }
void Project::setDescription(const QString &description) { assign(m_description, description); }
void Project::setVideoId(int id) { assign(m_videoId, id); }
void Project::setVideoPath(const QString &path) { assign(m_videoPath, path); }
void Project::setVideoLength(double seconds) { assign(m_videoLength, seconds); }
void Project::setUseRelativePath(bool on) { assign(m_useRelativePath, on); }
void Project::setTimelineIds(const QList<Id> &ids) { assign(m_timelineIds, ids); }
void Project::setOwner(const QString &owner) { assign(m_owner, owner); }
void Project::setOfflineUser(const QString &user) { assign(m_offlineUser, user); }

} // namespace OVProject
