#include "transcript/ovtranscriptimport.h"

#include "project/history.h"
#include "project/label.h"
#include "project/project.h"
#include "project/timeline.h"
#include "timeline/ovlabelpalette.h"
#include "timeline/ovtimelinehistory.h"
#include "transcript/ovtranscripthistory.h"
#include "transcript/ovtranscriptlogging.h"

#include <QHash>
#include <QObject>
#include <QUndoStack>

#include <algorithm>

OVTranscriptImport::Target OVTranscriptImport::targetForName(const QString &name, bool *ok)
{
    *ok = true;
    if (name.isEmpty() || name == QLatin1String("utterances"))
        return Utterances;
    if (name == QLatin1String("labels"))
        return Labels;
    *ok = false;
    return Utterances;
}

bool OVTranscriptImport::apply(OVProject::Project *project, OVProject::Timeline *timeline, const OVTranscriptData &data,
    Target target, Result *result, OVTranscriptReport *report, QString *why)
{
    using Row = OVTranscriptData::Row;
    const OVTranscriptData::Kind wanted = target == Labels ? OVTranscriptData::Labels : OVTranscriptData::Speech;
    QList<Row> rows = data.rowsOf(wanted);
    if (rows.isEmpty()) {
        rows = data.rows;
    } else if (rows.size() < data.rows.size() && report) {
        const qint64 other = data.rows.size() - rows.size();
        report->skip(target == Labels ? QObject::tr("%n annotations on speaker tiers (import them as utterances)", nullptr, int(other))
                                      : QObject::tr("%n annotations on label tiers (import them as labels)", nullptr, int(other)),
            other);
        report->read -= other;
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) { return a.start < b.start; });
    Result done;

    if (target == Utterances) {
        QList<OVTranscriptHistory::UtteranceData> utterances;
        utterances.reserve(rows.size());
        for (const Row &r : std::as_const(rows))
            utterances.append({ {}, r.tier, r.text, r.start, r.end });
        OVTranscriptHistory history;
        history.setProject(project);
        if (!history.replaceUtterances(timeline, utterances, QObject::tr("Import transcript"))) {
            *why = QObject::tr("the transcript could not be replaced");
            return false;
        }
        done.utterances = utterances.size();
    } else {
        OVTimelineHistory history;
        history.setProject(project);
        QHash<QString, OVProject::Label *> labels;
        for (OVProject::Label *l : timeline->labels()) {
            if (!labels.contains(l->name()))
                labels.insert(l->name(), l);
        }
        const QList<QColor> &palette = OVLabelPalette::colors();
        OVProject::History *h = project->history();
        const int stepsBefore = h->undoStack()->index();
        bool ok = true;
        history.beginGesture(QObject::tr("Import labels"));
        for (const Row &r : std::as_const(rows)) {
            OVProject::Label *l = labels.value(r.tier);
            if (!l) {
                // A new label has no key: a key from another project would clash with this one's.
                const QColor color = palette.at((timeline->labels().size() + 3) % palette.size());
                l = history.addLabel(timeline, r.tier, QChar(), color);
                if (!l) {
                    ok = false;
                    break;
                }
                labels.insert(r.tier, l);
                ++done.labelsAdded;
            }
            if (!history.addSegment(l, r.start, r.end, r.text)) {
                ok = false;
                break;
            }
            ++done.segments;
        }
        history.endGesture();
        if (!ok) {
            // Take back what the gesture did, so that a failed import leaves the timeline as it was.
            if (h->undoStack()->index() > stepsBefore)
                h->undo();
            *why = QObject::tr("the segments could not be added to the timeline");
            return false;
        }
    }
    qCInfo(lcTranscript) << "Imported" << done.utterances << "utterances," << done.segments << "segments,"
                         << done.labelsAdded << "new labels";
    if (result)
        *result = done;
    return true;
}
