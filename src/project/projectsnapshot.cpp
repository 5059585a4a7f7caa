#include "project/projectsnapshot.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

namespace OVProject {

ProjectSnapshot::ProjectSnapshot(const Project *project)
    : headerData(header(project))
{
    const QList<Timeline *> list = project->timelineGroup()->timelines();
    QList<Id> ids;
    ids.reserve(list.size());
    timelines.reserve(std::size_t(list.size()));
    for (const Timeline *t : list) {
        ids.append(t->id());
        timelines.push_back(timeline(t));
    }
    // The file lists the timelines it holds, whatever the header remembered.
    headerData.timelineIds = ids;
}

ProjectSnapshot::HeaderData ProjectSnapshot::header(const Project *p)
{
    HeaderData h;
    h.title = p->title();
    h.description = p->description();
    h.id = p->id();
    h.timelineIds = p->timelineIds();
    h.videoId = p->videoId();
    h.videoPath = p->videoPath();
    h.useRelativePath = p->useRelativePath();
    h.onlineId = p->onlineId();
    h.projectType = p->projectType();
    h.maxTextWidth = p->maxTextWidth();
    h.owner = p->owner();
    h.offlineUser = p->offlineUser();
    h.videoLength = p->videoLength();
    return h;
}

ProjectSnapshot::LabelData ProjectSnapshot::label(const Label *l)
{
    LabelData d;
    d.id = l->id();
    d.name = l->name();
    d.description = l->description();
    d.rgba = l->color().rgba();
    d.key = l->key().unicode();
    d.sortOrder = l->sortOrder();
    d.segments.reserve(std::size_t(l->segmentCount()));
    for (const Segment *s : l->segments())
        d.segments.push_back({ s->id(), s->description(), s->start(), s->end() });
    return d;
}

ProjectSnapshot::TimelineData ProjectSnapshot::timeline(const Timeline *t)
{
    TimelineData d;
    d.id = t->id();
    d.owner = t->owner();
    d.blind = t->isBlind();
    d.labels.reserve(std::size_t(t->labels().size()));
    for (const Label *l : t->labels())
        d.labels.push_back(label(l));
    d.utterances.reserve(std::size_t(t->utterances().size()));
    for (const Utterance *u : t->utterances())
        d.utterances.push_back({ u->id(), u->text(), u->speaker(), u->startTime(), u->endTime() });
    for (const SegmentGroup *g : t->segmentGroups())
        d.groups.push_back({ g->id(), g->name(), g->segmentIds() });
    d.hiddenSegments = t->hiddenSegments();
    d.hiddenLabels = t->hiddenLabels();
    d.hiddenUtterances = t->hiddenUtterances();
    d.hiddenUtteranceUsers = t->hiddenUtteranceUsers();
    d.binaryData = t->binaryData();
    return d;
}

} // namespace OVProject
