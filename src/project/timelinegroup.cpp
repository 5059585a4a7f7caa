#include "project/timelinegroup.h"

#include "project/timeline.h"

#include <algorithm>

namespace OVProject {

TimelineGroup::TimelineGroup(QObject *parent)
    : QObject(parent)
{
    registerMetaTypes();
}

Timeline *TimelineGroup::timeline(const Id &id) const
{
    for (Timeline *t : m_timelines) {
        if (t->id() == id)
            return t;
    }
    return nullptr;
}

Timeline *TimelineGroup::timelineForOwner(const QString &user) const
{
    for (Timeline *t : m_timelines) {
        if (t->owner() == user)
            return t;
    }
    return nullptr;
}

bool TimelineGroup::addTimeline(Timeline *timeline)
{
    if (!timeline || m_timelines.contains(timeline) || this->timeline(timeline->id()))
        return false;
    if (auto *old = qobject_cast<TimelineGroup *>(timeline->parent()); old && old != this)
        old->takeTimeline(timeline);
    timeline->setParent(this);
    m_timelines.append(timeline);
    connect(timeline, &QObject::destroyed, this, &TimelineGroup::onTimelineDestroyed);
    connect(timeline, &Timeline::utterancesChanged, this, &TimelineGroup::relayUtterances);
    connect(timeline, &Timeline::labelsChanged, this, &TimelineGroup::relayLabels);
    connect(timeline, &Timeline::labelDetailsChanged, this, &TimelineGroup::relayLabelDetails);
    connect(timeline, &Timeline::segmentsChanged, this, &TimelineGroup::relaySegments);
    connect(timeline, &Timeline::segmentGroupsChanged, this, &TimelineGroup::changed);
    connect(timeline, &Timeline::langsChanged, this, &TimelineGroup::changed);
    connect(timeline, &Timeline::changed, this, &TimelineGroup::changed);
    Q_EMIT timelinesChanged();
    Q_EMIT changed();
    return true;
}

Timeline *TimelineGroup::takeTimeline(Timeline *timeline)
{
    if (!timeline || !m_timelines.removeOne(timeline))
        return nullptr;
    disconnect(timeline, nullptr, this, nullptr);
    timeline->setParent(nullptr);
    Q_EMIT timelinesChanged();
    Q_EMIT changed();
    return timeline;
}

void TimelineGroup::removeTimeline(Timeline *timeline) { delete takeTimeline(timeline); }

void TimelineGroup::clear()
{
    if (m_timelines.isEmpty())
        return;
    const QList<Timeline *> old = std::exchange(m_timelines, {});
    for (Timeline *t : old) {
        disconnect(t, nullptr, this, nullptr);
        delete t;
    }
    Q_EMIT timelinesChanged();
    Q_EMIT changed();
}

void TimelineGroup::onTimelineDestroyed(QObject *object)
{
    const auto it = std::find_if(m_timelines.begin(), m_timelines.end(),
        [object](Timeline *t) { return static_cast<QObject *>(t) == object; });
    if (it == m_timelines.end())
        return;
    m_timelines.erase(it);
    Q_EMIT timelinesChanged();
    Q_EMIT changed();
}

void TimelineGroup::relayUtterances()
{
    Q_EMIT utterancesChanged();
    Q_EMIT changed();
}

void TimelineGroup::relayLabels()
{
    Q_EMIT labelsChanged();
    Q_EMIT changed();
}

void TimelineGroup::relayLabelDetails()
{
    Q_EMIT labelDetailsChanged();
    Q_EMIT changed();
}

void TimelineGroup::relaySegments()
{
    Q_EMIT segmentsChanged();
    Q_EMIT changed();
}

} // namespace OVProject
