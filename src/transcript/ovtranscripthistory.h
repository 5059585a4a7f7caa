#pragma once

#include "project/basenode.h"
#include "project/project.h"

#include <QList>
#include <QObject>
#include <QPointer>

namespace OVProject {
class History;
class HistoryCommand;
class Project;
class Timeline;
class Utterance;
} // namespace OVProject

// The transcript's requests to change the model. Each request either changes the model and
// leaves one step in the project's one history, or returns false / null and changes nothing.
// Steps hold ids and values, never node pointers, since undo and redo delete and re-create
// nodes. Any number of these objects (the table, the transcribing keys, an import) push to the
// same history.
class OVTranscriptHistory : public QObject
{
    Q_OBJECT
public:
    struct UtteranceData
    {
        OVProject::Id id;
        QString speaker;
        QString text;
        double start = 0.0;
        double end = 0.0;

        bool operator==(const UtteranceData &) const = default;
    };

    explicit OVTranscriptHistory(QObject *parent = nullptr);

    void setProject(OVProject::Project *project);
    OVProject::Project *project() const { return m_project; }
    OVProject::History *history() const;

    // Returns the new utterance, or null. An utterance may be open (being transcribed): its end
    // equals its start until it is finished.
    OVProject::Utterance *addUtterance(OVProject::Timeline *timeline, double start, double end, const QString &speaker,
        const QString &text = QString());
    bool editUtterance(OVProject::Utterance *utterance, double start, double end, const QString &speaker,
        const QString &text);
    bool setUtteranceText(OVProject::Utterance *utterance, const QString &text);
    // The text of an utterance as it is being typed, one call per key. Calls that follow each
    // other for the same utterance become one step, so Undo takes back the typing as a whole
    // while every key is already in the model (and in the journal).
    bool typeUtteranceText(OVProject::Utterance *utterance, const QString &text);
    bool removeUtterances(const QList<OVProject::Utterance *> &utterances);
    // Replaces every utterance of the timeline by `utterances` as one step (an import). Rows
    // without an id get a fresh one; undo brings back the old transcript exactly, ids and order
    // included.
    bool replaceUtterances(OVProject::Timeline *timeline, const QList<UtteranceData> &utterances, const QString &stepText);
    bool clearTranscript(OVProject::Timeline *timeline);

    static UtteranceData utteranceData(const OVProject::Utterance *utterance);
    static QList<UtteranceData> utteranceData(const OVProject::Timeline *timeline);
    // The transcript's invariants; a text naming the first broken one, empty if none.
    static QString checkConsistency(const OVProject::Project *project);

private:
    static bool validTimes(double start, double end);
    OVProject::Timeline *ownTimeline(OVProject::Timeline *timeline) const;
    OVProject::Timeline *timelineOf(const OVProject::Utterance *utterance) const;
    bool push(OVProject::HistoryCommand *command);

    QPointer<OVProject::Project> m_project;
};
