#include "analysis/ovcodingsnapshot.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <algorithm>

bool OVCodingSnapshot::Segment::isOpen() const
{
    return end == OVProject::Segment::OpenEnd;
}

OVCodingSnapshot OVCodingSnapshot::fromProject(const OVProject::Project &project, const QString &projectName)
{
    OVCodingSnapshot snapshot;
    snapshot.projectName = projectName;
    snapshot.videoLength = project.videoLength();
    for (const OVProject::Timeline *t : project.timelineGroup()->timelines()) {
        Coder coder;
        coder.timelineId = t->id();
        coder.name = t->owner().isEmpty() ? t->id() : t->owner();
        for (const OVProject::Label *l : t->labels()) {
            Label label;
            label.id = l->id();
            label.name = l->name();
            label.key = l->key().toUpper();
            label.color = l->color().rgba();
            label.segments.reserve(l->segmentCount());
            for (const OVProject::Segment *s : l->segments())
                label.segments.append({s->id(), s->start(), s->end(), s->description()});
            coder.labels.append(std::move(label));
        }
        for (const OVProject::SegmentGroup *g : t->segmentGroups())
            coder.groups.append({g->id(), g->name(), QStringList(g->segmentIds().cbegin(), g->segmentIds().cend())});
        for (const OVProject::Utterance *u : t->utterances())
            coder.utterances.append({u->id(), u->speaker(), u->text(), u->startTime(), u->endTime()});
        snapshot.coders.append(std::move(coder));
    }
    return snapshot;
}

const OVCodingSnapshot::Coder *OVCodingSnapshot::coder(const QString &nameOrId) const
{
    for (const Coder &c : coders)
        if (c.name == nameOrId)
            return &c;
    for (const Coder &c : coders)
        if (c.timelineId == nameOrId)
            return &c;
    return nullptr;
}

double OVCodingSnapshot::observedEnd() const
{
    if (videoLength > 0.0)
        return videoLength;
    double end = 0.0;
    for (const Coder &c : coders) {
        for (const Label &l : c.labels)
            for (const Segment &s : l.segments)
                if (!s.isOpen())
                    end = std::max(end, s.end);
        for (const Utterance &u : c.utterances)
            end = std::max(end, u.end);
    }
    return end;
}

QString OVCodingSnapshot::groupsOf(const Coder &coder, const QString &segmentId)
{
    QStringList names;
    for (const Group &g : coder.groups)
        if (g.segmentIds.contains(segmentId))
            names << g.name;
    return names.join(QStringLiteral("; "));
}
