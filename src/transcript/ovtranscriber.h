#pragma once

#include "project/project.h"

#include <QObject>
#include <QPointer>
#include <QString>

class OVTranscriptHistory;

namespace OVProject {
class Timeline;
class Utterance;
} // namespace OVProject

// The rule of transcribing while the video plays, without any widget. One utterance at a time is
// being written: it is opened at the playing position and, once the coder has typed what was
// said, closed at the position then. The key that starts and the key that finishes are by default
// the same one, so startOrFinish() decides by whether an utterance is open.
class OVTranscriber : public QObject
{
    Q_OBJECT
public:
    enum Outcome {
        Started,
        Finished,
        NotEnabled,
        NoProject,
        NoTimeline,
        NothingOpen, // finish asked with no utterance being written
        Failed, // the history refused the change
    };
    struct Result
    {
        Outcome outcome = NoProject;
        OVProject::Id utteranceId;
        QString message; // why nothing happened, for the user
        bool changed() const { return outcome == Started || outcome == Finished; }
    };
    // An utterance lasts at least this long, so that it can be seen on the timeline and found.
    static constexpr double MinimumDuration = 0.1;

    explicit OVTranscriber(OVTranscriptHistory *requests, QObject *parent = nullptr);

    void setProject(OVProject::Project *project);
    void setEnabled(bool on);
    bool isEnabled() const { return m_enabled; }

    // The utterance being written, or null (it may have been undone or deleted meanwhile).
    OVProject::Utterance *openUtterance() const;
    bool isWriting() const { return openUtterance() != nullptr; }

    // What the coder has typed so far for the open utterance. It goes into the model with every
    // key (a crash must not take the line being typed with it); the keys of one utterance are
    // one undo step. False when nothing is open or the history refused it.
    bool setDraft(const QString &text);
    QString draft() const;

    // The speaker of the next utterance: the last one used unless changed.
    QString speaker() const { return m_speaker; }
    void setSpeaker(const QString &speaker);
    // Steps through the timeline's speakers in order, then to one new speaker, then around.
    QString nextSpeaker();

    Result start();
    Result finish();
    // The shared key: finishes the open utterance, or starts one when none is open.
    Result startOrFinish();

Q_SIGNALS:
    void writingChanged(bool writing);
    void speakerChanged(const QString &speaker);
    // The open utterance's text changed other than through setDraft() (undo, redo, the table).
    void draftChanged(const QString &text);

private:
    OVProject::Timeline *timeline() const;
    double position() const;
    Result refuse(Outcome outcome, const QString &message) const;
    static QString notEnabledMessage();
    void onUtterancesChanged();

    OVTranscriptHistory *m_requests;
    QPointer<OVProject::Project> m_project;
    bool m_enabled = false;
    OVProject::Id m_open;
    bool m_wasWriting = false;
    QString m_lastDraft;
    QString m_speaker;
};
