#pragma once

#include "project/label.h"
#include "project/project.h"
#include "project/segment.h"
#include "project/state.h"
#include "project/timeline.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTest>
#include <QWidget>

// Helpers shared by the timeline tests: a project with one timeline of four labels (keys A-D)
// and a text form of a timeline's segments that compares exactly.
namespace TimelineFixture {

inline OVProject::Timeline *newProject(OVProject::Project *project, double videoLength = 600.0)
{
    OVProject::Timeline *t = project->startNew(QStringLiteral("alice"));
    project->setVideoLength(videoLength);
    return t;
}

inline QString endText(double end) { return end == OVProject::Segment::OpenEnd ? QStringLiteral("open") : QString::number(end, 'g', 12); }

// "label:start-end" for every segment, labels in order, segments by start.
inline QStringList segmentList(const OVProject::Timeline *t)
{
    QStringList out;
    for (int i = 0; i < t->labels().size(); ++i) {
        for (const OVProject::Segment *s : t->labels().at(i)->segmentsInRange(-1e300, 1e300))
            out << QStringLiteral("%1:%2-%3").arg(i).arg(QString::number(s->start(), 'g', 12), endText(s->end()));
    }
    return out;
}

// Everything undo must restore: ids, label, times and texts, in list order.
inline QStringList snapshot(const OVProject::Timeline *t)
{
    QStringList out;
    for (const OVProject::Label *l : t->labels()) {
        out << QStringLiteral("L %1 %2 %3 %4 %5").arg(l->id(), l->name(), QString(l->key()), l->color().name()).arg(l->sortOrder());
        QStringList segs;
        for (const OVProject::Segment *s : l->segments())
            segs << QStringLiteral("  S %1 %2 %3 %4").arg(s->id(), QString::number(s->start(), 'g', 17), QString::number(s->end(), 'g', 17), s->description());
        segs.sort();
        out += segs;
    }
    return out;
}

// Shows `w` as the active window, as keyboard coding needs it.
inline bool showActive(QWidget *w)
{
    w->resize(900, 300);
    w->show();
    w->activateWindow();
    return QTest::qWaitForWindowActive(w);
}

} // namespace TimelineFixture
