#pragma once

#include "project/basenode.h"

#include <QChar>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class OVLabelingSettings;
class OVTimelineHistory;

namespace OVProject {
class Project;
class Timeline;
} // namespace OVProject

// The rule of keyboard coding, without any widget: a label's key pressed at the playing position
// opens, closes or creates a segment of that label according to the labeling settings, through
// the timeline's history requests. A press that codes nothing says why, so that a coder who
// presses a key and sees nothing happen is never left guessing.
class OVKeyboardCoder : public QObject
{
    Q_OBJECT
public:
    enum Outcome {
        Created, // single press: a segment of the default duration
        Opened, // double press: an open segment
        Closed, // double press: the open segment got its end
        NoProject,
        NoVideo,
        NoTimeline,
        LabelingDisabled,
        Blocked, // coding is stopped for a reason of the caller's (playback failed)
        NoLabel, // no label has the key: not a coding key at all
        InsideSegment, // the label already has a segment at the position
        Failed, // the history refused the change
    };
    struct Result
    {
        Outcome outcome = NoProject;
        OVProject::Id labelId;
        OVProject::Id segmentId;
        // Why nothing was coded, for the user; empty when something was, or when the key is not
        // a coding key (no project, no label with that key).
        QString message;
        bool changed() const { return outcome == Created || outcome == Opened || outcome == Closed; }
    };

    explicit OVKeyboardCoder(OVTimelineHistory *requests, QObject *parent = nullptr);

    void setProject(OVProject::Project *project);
    // Not owned; without settings their defaults apply.
    void setLabelingSettings(const OVLabelingSettings *settings);
    void setLabelingEnabled(bool on) { m_labelingEnabled = on; }
    bool isLabelingEnabled() const { return m_labelingEnabled; }
    // While not empty, no key codes and each press is answered with this reason: when playback
    // has stopped with an error the position no longer moves, and every press would code at a
    // frozen time.
    void setBlockedReason(const QString &reason) { m_blockedReason = reason; }

    // Codes `key` (compared in upper case) at the project state's current position.
    Result code(QChar key);

    // The timeline coding acts on: the active user's, or the first one when no user is active.
    static OVProject::Timeline *activeTimeline(const OVProject::Project *project);
    // The timelines shown: the active one and those of the displayed users, in the group's order.
    static QList<OVProject::Timeline *> displayedTimelines(const OVProject::Project *project);

Q_SIGNALS:
    // After every press that found a label, whatever came of it.
    void coded(const OVKeyboardCoder::Result &result);

private:
    Result finish(Result r);

    OVTimelineHistory *m_requests;
    QPointer<OVProject::Project> m_project;
    QPointer<const OVLabelingSettings> m_settings;
    OVLabelingSettings *m_defaults;
    bool m_labelingEnabled = false;
    QString m_blockedReason;
};

Q_DECLARE_METATYPE(OVKeyboardCoder::Result)
