#pragma once

#include "project/basenode.h"

#include <QList>
#include <QObject>

namespace OVProject {

class Timeline;

// The open project's timelines (owned), with lookup by id, and the one place views connect to:
// every change signal of the timelines below arrives here again, and changed() follows each.
class TimelineGroup : public QObject
{
    Q_OBJECT
public:
    explicit TimelineGroup(QObject *parent = nullptr);

    const QList<Timeline *> &timelines() const { return m_timelines; }
    int count() const { return int(m_timelines.size()); }
    Timeline *timeline(const Id &id) const;
    // The first timeline owned by `user`; null if none.
    Timeline *timelineForOwner(const QString &user) const;

    // Takes ownership; a timeline with an id already present is refused (false).
    bool addTimeline(Timeline *timeline);
    void removeTimeline(Timeline *timeline);
    // Removes without deleting; the caller owns the timeline afterwards.
    Timeline *takeTimeline(Timeline *timeline);
    // Deletes every timeline.
    void clear();

Q_SIGNALS:
    void changed();
    void utterancesChanged();
    void timelinesChanged();
    void labelsChanged();
    void labelDetailsChanged();
    void segmentsChanged();

private Q_SLOTS:
    void onTimelineDestroyed(QObject *object);
    void relayUtterances();
    void relayLabels();
    void relayLabelDetails();
    void relaySegments();

private:
    QList<Timeline *> m_timelines;
};

} // namespace OVProject
