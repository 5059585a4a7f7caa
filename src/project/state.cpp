#include "project/state.h"

namespace OVProject {

State::State(QObject *parent)
    : QObject(parent)
{
    registerMetaTypes();
}

void State::setCurrentPos(double pos)
{
    if (pos == m_currentPos)
        return;
    m_currentPos = pos;
    Q_EMIT currentPosChanged();
    Q_EMIT changed();
}

void State::setSeekPos(double pos)
{
    // A seek to the same place is still a request (the user pressed "go to start" twice).
    m_seekPos = pos;
    Q_EMIT seekPosChanged();
    Q_EMIT changed();
}

void State::setActiveUser(const QString &user)
{
    if (user == m_activeUser)
        return;
    m_activeUser = user;
    Q_EMIT activeUserChanged();
    Q_EMIT changed();
}

void State::setActiveDrawingTimeline(const Id &timelineId)
{
    if (timelineId == m_activeDrawingTimeline)
        return;
    m_activeDrawingTimeline = timelineId;
    Q_EMIT activeDrawingTimelineChanged();
    Q_EMIT changed();
}

void State::setDisplayedTimelineUsers(const QStringList &users)
{
    if (users == m_displayedTimelineUsers)
        return;
    m_displayedTimelineUsers = users;
    Q_EMIT displayedTimelineUsersChanged();
    Q_EMIT changed();
}

void State::setUtterances(const QList<Id> &utterances)
{
    if (utterances == m_utterances)
        return;
    m_utterances = utterances;
    Q_EMIT utterancesChanged();
    Q_EMIT changed();
}

void State::setPlayRange(double start, double end)
{
    if (m_hasPlayRange && start == m_playRangeStart && end == m_playRangeEnd)
        return;
    m_hasPlayRange = true;
    m_playRangeStart = start;
    m_playRangeEnd = end;
    Q_EMIT playRangeChanged();
    Q_EMIT changed();
}

void State::clearPlayRange()
{
    if (!m_hasPlayRange)
        return;
    m_hasPlayRange = false;
    Q_EMIT playRangeChanged();
    Q_EMIT changed();
}

void State::reset()
{
    clearPlayRange();
    setCurrentPos(0.0);
    if (m_seekPos != 0.0)
        setSeekPos(0.0);
    setActiveUser(QString());
    setActiveDrawingTimeline(Id());
    setDisplayedTimelineUsers({});
    setUtterances({});
}

} // namespace OVProject
