#include "transcript/ovtranscriber.h"

#include "project/project.h"
#include "project/state.h"
#include "project/timeline.h"
#include "project/timelinegroup.h"
#include "project/utterance.h"
#include "timeline/ovkeyboardcoder.h"
#include "transcript/ovtranscripthistory.h"

#include <QDebug>

using namespace OVProject;

OVTranscriber::OVTranscriber(OVTranscriptHistory *requests, QObject *parent)
    : QObject(parent), m_requests(requests), m_speaker(tr("Speaker 1"))
{
}

void OVTranscriber::setProject(Project *project)
{
    if (m_project)
        disconnect(m_project->timelineGroup(), nullptr, this, nullptr);
    m_project = project;
    m_open.clear();
    m_lastDraft.clear();
    if (m_project) {
        connect(m_project->timelineGroup(), &TimelineGroup::utterancesChanged, this, &OVTranscriber::onUtterancesChanged);
        connect(m_project->timelineGroup(), &TimelineGroup::timelinesChanged, this, &OVTranscriber::onUtterancesChanged);
        // Go on with the speaker the transcript ended with.
        if (const Timeline *t = timeline()) {
            const Utterance *last = nullptr;
            for (const Utterance *u : t->utterances()) {
                if (!last || u->startTime() >= last->startTime())
                    last = u;
            }
            if (last && !last->speaker().isEmpty())
                setSpeaker(last->speaker());
            // An utterance is only ever without length while it is being written (a finished one
            // lasts at least MinimumDuration): the last one, left so by a session that ended or
            // was saved mid-sentence, is written on, and the key finishes it.
            if (last && last->endTime() <= last->startTime()) {
                m_open = last->id();
                m_lastDraft = last->text();
            }
        }
    }
    onUtterancesChanged();
}

void OVTranscriber::setEnabled(bool on)
{
    m_enabled = on;
}

Timeline *OVTranscriber::timeline() const
{
    return OVKeyboardCoder::activeTimeline(m_project);
}

double OVTranscriber::position() const
{
    return m_project ? m_project->state()->currentPos() : 0.0;
}

Utterance *OVTranscriber::openUtterance() const
{
    const Timeline *t = m_open.isEmpty() ? nullptr : timeline();
    return t ? t->utterance(m_open) : nullptr;
}

bool OVTranscriber::setDraft(const QString &text)
{
    Utterance *u = openUtterance();
    if (!u)
        return false;
    m_lastDraft = text;
    return m_requests->typeUtteranceText(u, text);
}

QString OVTranscriber::draft() const
{
    const Utterance *u = openUtterance();
    return u ? u->text() : QString();
}

void OVTranscriber::onUtterancesChanged()
{
    // Undoing the start of the utterance being written ends the writing.
    const bool writing = isWriting();
    if (!writing)
        m_open.clear();
    if (writing != m_wasWriting) {
        m_wasWriting = writing;
        Q_EMIT writingChanged(writing);
    }
    const QString text = draft();
    if (writing && text != m_lastDraft) {
        m_lastDraft = text;
        Q_EMIT draftChanged(text);
    }
}

void OVTranscriber::setSpeaker(const QString &speaker)
{
    const QString s = speaker.trimmed();
    if (s.isEmpty() || s == m_speaker)
        return;
    m_speaker = s;
    Q_EMIT speakerChanged(m_speaker);
}

QString OVTranscriber::nextSpeaker()
{
    QStringList known;
    if (const Timeline *t = timeline()) {
        for (const Utterance *u : t->utterances()) {
            if (!u->speaker().isEmpty() && !known.contains(u->speaker()))
                known.append(u->speaker());
        }
    }
    known.sort(Qt::CaseInsensitive);
    const int i = known.indexOf(m_speaker);
    QString next;
    if (i >= 0 && i + 1 < known.size()) {
        next = known.at(i + 1);
    } else if (i < 0 && !known.isEmpty()) {
        // The speaker was new and unused: back to the first known one.
        next = known.first();
    } else {
        // After the last known speaker comes one nobody has used yet.
        int n = int(known.size()) + 1;
        while (known.contains(tr("Speaker %1").arg(n)))
            ++n;
        next = tr("Speaker %1").arg(n);
    }
    setSpeaker(next);
    return m_speaker;
}

OVTranscriber::Result OVTranscriber::refuse(Outcome outcome, const QString &message) const
{
    Result r;
    r.outcome = outcome;
    r.message = message;
    return r;
}

QString OVTranscriber::notEnabledMessage()
{
    return tr("Transcribing is off: turn on \"Enable Transcribing\" first.");
}

OVTranscriber::Result OVTranscriber::start()
{
    if (!m_enabled)
        return refuse(NotEnabled, notEnabledMessage());
    if (!m_project)
        return refuse(NoProject, QString());
    Timeline *t = timeline();
    if (!t)
        return refuse(NoTimeline, tr("There is no timeline to transcribe into."));
    // Starting while one is open closes that one first, so speech can be cut without gaps.
    if (isWriting()) {
        const Result closed = finish();
        if (!closed.changed())
            return closed;
    }
    const double pos = position();
    Utterance *u = m_requests->addUtterance(t, pos, pos, m_speaker);
    if (!u)
        return refuse(Failed, tr("The utterance could not be started."));
    m_open = u->id();
    m_lastDraft.clear();
    m_wasWriting = true;
    Q_EMIT writingChanged(true);
    return Result{ Started, m_open, QString() };
}

OVTranscriber::Result OVTranscriber::finish()
{
    if (!m_enabled)
        return refuse(NotEnabled, notEnabledMessage());
    Utterance *u = openUtterance();
    if (!u)
        return refuse(NothingOpen, tr("No utterance is being written."));
    double start = u->startTime();
    double end = position();
    // Playback may have looped back before the start: the utterance spans the two positions.
    if (end < start)
        std::swap(start, end);
    end = std::max(end, start + MinimumDuration);
    const QString text = u->text().trimmed();
    if (!m_requests->editUtterance(u, start, end, u->speaker(), text))
        return refuse(Failed, tr("The utterance could not be finished."));
    const Result r{ Finished, m_open, QString() };
    m_open.clear();
    m_lastDraft.clear();
    m_wasWriting = false;
    Q_EMIT writingChanged(false);
    return r;
}

OVTranscriber::Result OVTranscriber::startOrFinish()
{
    return isWriting() ? finish() : start();
}
