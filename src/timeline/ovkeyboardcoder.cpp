#include "timeline/ovkeyboardcoder.h"

#include "log/ovtimeformat.h"
#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "settings/ovlabelingsettings.h"
#include "timeline/ovtimelinehistory.h"
#include "timeline/ovtimelinelogging.h"

#include <QDebug>

#include <algorithm>

using namespace OVProject;

OVKeyboardCoder::OVKeyboardCoder(OVTimelineHistory *requests, QObject *parent)
    : QObject(parent)
    , m_requests(requests)
    , m_defaults(new OVLabelingSettings(this))
{
}

void OVKeyboardCoder::setProject(Project *project) { m_project = project; }

void OVKeyboardCoder::setLabelingSettings(const OVLabelingSettings *settings) { m_settings = settings; }

Timeline *OVKeyboardCoder::activeTimeline(const Project *project)
{
    if (!project)
        return nullptr;
    const TimelineGroup *group = project->timelineGroup();
    const QString user = project->state()->activeUser();
    if (user.isEmpty())
        return group->timelines().isEmpty() ? nullptr : group->timelines().first();
    return group->timelineForOwner(user);
}

QList<Timeline *> OVKeyboardCoder::displayedTimelines(const Project *project)
{
    QList<Timeline *> result;
    if (!project)
        return result;
    const Timeline *active = activeTimeline(project);
    const QStringList users = project->state()->displayedTimelineUsers();
    for (Timeline *t : project->timelineGroup()->timelines()) {
        if (t == active || users.contains(t->owner()))
            result.append(t);
    }
    return result;
}

OVKeyboardCoder::Result OVKeyboardCoder::finish(Result r)
{
    // One line per coded event in the log: what a coder did is on record even when the session
    // is killed before anything is saved.
    if (r.changed() && m_project && lcTimeline().isDebugEnabled()) {
        const Timeline *timeline = activeTimeline(m_project);
        if (const Segment *s = timeline ? timeline->findSegment(r.segmentId) : nullptr)
            qCDebug(lcTimeline).noquote() << "KeyboardCoder::coded segment" << s->id() << "label:" << r.labelId
                               << "start:" << QString::number(s->start(), 'f', 3)
                               << "end:" << QString::number(s->end(), 'f', 3);
    }
    if (!r.labelId.isEmpty())
        Q_EMIT coded(r);
    return r;
}

OVKeyboardCoder::Result OVKeyboardCoder::code(QChar key)
{
    Result r;
    if (!m_project)
        return r;
    Timeline *timeline = activeTimeline(m_project);
    Label *label = timeline ? timeline->labelForKey(key.toUpper()) : nullptr;
    if (!label) {
        r.outcome = timeline ? NoLabel : NoTimeline;
        return r;
    }
    r.labelId = label->id();
    if (m_project->videoLength() == 0.0) {
        r.outcome = NoVideo;
        r.message = tr("Nothing coded: add a video or audio file to the project first.");
        return finish(r);
    }
    if (!m_blockedReason.isEmpty()) {
        r.outcome = Blocked;
        r.message = m_blockedReason;
        return finish(r);
    }
    if (!m_labelingEnabled) {
        r.outcome = LabelingDisabled;
        r.message = tr("Nothing coded: labeling is disabled. Click anywhere on the timelines to enable it.");
        return finish(r);
    }

    const OVLabelingSettings *settings = m_settings ? m_settings.data() : m_defaults;
    const double p = m_project->state()->currentPos();
    if (Segment *open = label->openSegment()) {
        const double e = std::max(0.0, p - settings->leadCloseTime());
        const Id id = open->id();
        // A closing lead longer than the segment so far turns it around rather than inverting it.
        const bool ok = e <= open->start() ? m_requests->setSegmentTimes(open, e, open->start())
                                           : m_requests->setSegmentTimes(open, open->start(), e);
        r.outcome = ok ? Closed : Failed;
        r.segmentId = id;
    } else if (!label->segmentsInRange(p, p).isEmpty()) {
        // A second segment there would only duplicate the first.
        r.outcome = InsideSegment;
        r.message = tr("Nothing coded: \"%1\" already has a segment at %2.").arg(label->name(), OVTimeFormat::format(p));
        return finish(r);
    } else {
        const double s = std::max(0.0, p - settings->leadOpenTime());
        const bool doublePress = settings->isDoublePressMode();
        const Segment *segment = m_requests->addSegment(label, s, doublePress ? Segment::OpenEnd : s + settings->defaultSegmentDuration());
        r.outcome = !segment ? Failed : doublePress ? Opened : Created;
        if (segment)
            r.segmentId = segment->id();
    }
    if (r.outcome == Failed)
        r.message = tr("Nothing coded: the change to \"%1\" could not be made.").arg(label->name());
    return finish(r);
}
