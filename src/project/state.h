#pragma once

#include "project/basenode.h"

#include <QList>
#include <QObject>
#include <QStringList>

namespace OVProject {

// The view state shared by every window of one project. Not saved with the project.
// Every setter emits its own signal and then changed(), and only when the value differs.
class State : public QObject
{
    Q_OBJECT
public:
    explicit State(QObject *parent = nullptr);

    // Playing position in seconds, published by the player's clock.
    double currentPos() const { return m_currentPos; }
    // Position last asked for by a seek.
    double seekPos() const { return m_seekPos; }
    // The user whose timeline is edited.
    QString activeUser() const { return m_activeUser; }
    // The timeline that receives drawings on the video.
    Id activeDrawingTimeline() const { return m_activeDrawingTimeline; }
    // Users whose timelines are shown.
    QStringList displayedTimelineUsers() const { return m_displayedTimelineUsers; }
    // Utterances the views mark as current (for example those under the playing position).
    QList<Id> utterances() const { return m_utterances; }
    // The range the player loops or stops in; only meaningful while hasPlayRange().
    bool hasPlayRange() const { return m_hasPlayRange; }
    double playRangeStart() const { return m_playRangeStart; }
    double playRangeEnd() const { return m_playRangeEnd; }

    void setCurrentPos(double pos);
    void setSeekPos(double pos);
    void setActiveUser(const QString &user);
    void setActiveDrawingTimeline(const Id &timelineId);
    void setDisplayedTimelineUsers(const QStringList &users);
    void setUtterances(const QList<Id> &utterances);
    void setPlayRange(double start, double end);
    void clearPlayRange();
    // Back to the state of a newly opened project.
    void reset();

Q_SIGNALS:
    void changed();
    void currentPosChanged();
    void activeUserChanged();
    void utterancesChanged();
    void seekPosChanged();
    void activeDrawingTimelineChanged();
    void displayedTimelineUsersChanged();
    void playRangeChanged();

private:
    double m_currentPos = 0.0;
    double m_seekPos = 0.0;
    QString m_activeUser;
    Id m_activeDrawingTimeline;
    QStringList m_displayedTimelineUsers;
    QList<Id> m_utterances;
    bool m_hasPlayRange = false;
    double m_playRangeStart = 0.0;
    double m_playRangeEnd = 0.0;
};

} // namespace OVProject
