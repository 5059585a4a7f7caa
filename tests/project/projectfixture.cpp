#include "projectfixture.h"

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/segmentgroup.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"

#include <cmath>

using namespace OVProject;

namespace Fixture {

void fillProject(Project *p)
{
    p->startNew(QStringLiteral("anna"));
    p->setTitle(QStringLiteral("Lesson 4 \u00e9\u00e8 \u4e2d"));
    p->setDescription(QStringLiteral("two cameras\nand \"quotes\""));
    p->setVideoId(77);
    p->setVideoPath(QStringLiteral("/data/videos/lesson.mp4"));
    p->setVideoLength(754.1256);
    p->setUseRelativePath(false);
    p->setOnlineId(1234567890123LL);
    p->setProjectType(1);
    p->setMaxTextWidth(64);
    p->setOwner(QStringLiteral("anna"));
    p->setOfflineUser(QStringLiteral("anna.offline"));

    Timeline *t1 = p->timelineGroup()->timelines().first();
    t1->setBlind(true);
    Label *l1 = t1->labels().at(0);
    l1->setDescription(QStringLiteral("pupil talks"));
    l1->setColor(QColor::fromRgba(0x80ff8000));
    l1->setSortOrder(7);
    auto *s1 = new Segment(12.3456, 15.0, QStringLiteral("seg-1"));
    s1->setDescription(QStringLiteral("first"));
    auto *s2 = new Segment(20.0, Segment::OpenEnd, QStringLiteral("seg-2"));
    auto *s3 = new Segment(0.001, 0.5, QStringLiteral("seg-3"));
    l1->addSegment(s1);
    l1->addSegment(s2);
    t1->labels().at(2)->addSegment(s3);
    t1->labels().at(3)->setKey(QChar(0x00e4));
    auto *u1 = new Utterance(QStringLiteral("utt-1"));
    u1->setText(QStringLiteral("Good morning, \u00e4\u00f6\u00fc"));
    u1->setSpeaker(QStringLiteral("Teacher"));
    u1->setStartTime(1.25);
    u1->setEndTime(2.5);
    t1->addUtterance(u1);
    auto *u2 = new Utterance(QStringLiteral("utt-2"));
    u2->setText(QStringLiteral("Morning"));
    u2->setSpeaker(QStringLiteral("Pupil"));
    u2->setStartTime(3.0);
    u2->setEndTime(3.75);
    t1->addUtterance(u2);
    auto *g = new SegmentGroup(QStringLiteral("grp-1"));
    g->setName(QStringLiteral("Openings"));
    g->setSegmentIds({ QStringLiteral("seg-1"), QStringLiteral("seg-3") });
    t1->addSegmentGroup(g);
    t1->addSegmentGroup(new SegmentGroup(QStringLiteral("grp-empty")));
    t1->setSegmentHidden(QStringLiteral("seg-3"), true);
    t1->setLabelHidden(t1->labels().at(1)->id(), true);
    t1->setUtteranceHidden(QStringLiteral("utt-2"), true);
    t1->setUtteranceUserHidden(QStringLiteral("Pupil"), true);
    t1->setBinaryData(QStringLiteral("drawings"), QByteArray("\x00\x01\x02\xff binary", 12));
    t1->setBinaryData(QStringLiteral("empty"), QByteArray());

    Timeline *t2 = p->createTimeline(QStringLiteral("bert"));
    t2->labels().at(1)->addSegment(new Segment(100.0, 101.5, QStringLiteral("seg-b")));
    t2->removeLabel(t2->labels().at(3));
}

static QString times(double a, double b)
{
    return std::llround(a * 1000) == std::llround(b * 1000) ? QString()
                                                            : QStringLiteral("%1 != %2").arg(a).arg(b);
}

#define DIFF(what, x, y)                                                                                     \
    do {                                                                                                     \
        if ((x) != (y))                                                                                      \
            return QStringLiteral(what " differs");                                                          \
    } while (0)
#define DIFF_TIME(what, x, y)                                                                                \
    do {                                                                                                     \
        if (const QString d = times((x), (y)); !d.isEmpty())                                                 \
            return QStringLiteral(what ": ") + d;                                                            \
    } while (0)

QString difference(const Timeline *a, const Timeline *b)
{
    DIFF("timeline id", a->id(), b->id());
    DIFF("owner", a->owner(), b->owner());
    DIFF("blind", a->isBlind(), b->isBlind());
    DIFF("label count", a->labels().size(), b->labels().size());
    for (int i = 0; i < a->labels().size(); ++i) {
        const Label *la = a->labels()[i];
        const Label *lb = b->labels()[i];
        DIFF("label id", la->id(), lb->id());
        DIFF("label name", la->name(), lb->name());
        DIFF("label desc", la->description(), lb->description());
        DIFF("label color", la->color().rgba(), lb->color().rgba());
        DIFF("label key", la->key(), lb->key());
        DIFF("label sort order", la->sortOrder(), lb->sortOrder());
        DIFF("segment count", la->segmentCount(), lb->segmentCount());
        for (int j = 0; j < la->segmentCount(); ++j) {
            const Segment *sa = la->segments()[j];
            const Segment *sb = lb->segments()[j];
            DIFF("segment id", sa->id(), sb->id());
            DIFF("segment desc", sa->description(), sb->description());
            DIFF_TIME("segment start", sa->start(), sb->start());
            DIFF_TIME("segment end", sa->end(), sb->end());
        }
    }
    DIFF("utterance count", a->utterances().size(), b->utterances().size());
    for (int i = 0; i < a->utterances().size(); ++i) {
        const Utterance *ua = a->utterances()[i];
        const Utterance *ub = b->utterances()[i];
        DIFF("utterance id", ua->id(), ub->id());
        DIFF("utterance text", ua->text(), ub->text());
        DIFF("utterance speaker", ua->speaker(), ub->speaker());
        DIFF_TIME("utterance start", ua->startTime(), ub->startTime());
        DIFF_TIME("utterance end", ua->endTime(), ub->endTime());
    }
    DIFF("group count", a->segmentGroups().size(), b->segmentGroups().size());
    for (int i = 0; i < a->segmentGroups().size(); ++i) {
        DIFF("group id", a->segmentGroups()[i]->id(), b->segmentGroups()[i]->id());
        DIFF("group name", a->segmentGroups()[i]->name(), b->segmentGroups()[i]->name());
        DIFF("group members", a->segmentGroups()[i]->segmentIds(), b->segmentGroups()[i]->segmentIds());
    }
    DIFF("hidden segments", a->hiddenSegments(), b->hiddenSegments());
    DIFF("hidden labels", a->hiddenLabels(), b->hiddenLabels());
    DIFF("hidden utterances", a->hiddenUtterances(), b->hiddenUtterances());
    DIFF("hidden utterance users", a->hiddenUtteranceUsers(), b->hiddenUtteranceUsers());
    DIFF("binary data", a->binaryData(), b->binaryData());
    return QString();
}

QString difference(const Project *a, const Project *b)
{
    DIFF("project id", a->id(), b->id());
    DIFF("title", a->title(), b->title());
    DIFF("description", a->description(), b->description());
    DIFF("video id", a->videoId(), b->videoId());
    DIFF("video path", a->videoPath(), b->videoPath());
    DIFF("relative path", a->useRelativePath(), b->useRelativePath());
    DIFF("online id", a->onlineId(), b->onlineId());
    DIFF("type", a->projectType(), b->projectType());
    DIFF("max text width", a->maxTextWidth(), b->maxTextWidth());
    DIFF("project owner", a->owner(), b->owner());
    DIFF("offline user", a->offlineUser(), b->offlineUser());
    DIFF("timeline ids", a->timelineIds(), b->timelineIds());
    const auto &ta = a->timelineGroup()->timelines();
    const auto &tb = b->timelineGroup()->timelines();
    DIFF("timeline count", ta.size(), tb.size());
    for (int i = 0; i < ta.size(); ++i) {
        if (const QString d = difference(ta[i], tb[i]); !d.isEmpty())
            return d;
    }
    return QString();
}

} // namespace Fixture
