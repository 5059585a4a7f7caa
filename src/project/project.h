#pragma once

#include "project/basenode.h"

#include <QList>

namespace OVProject {

class History;
class State;
class Timeline;
class TimelineGroup;

// The header of one observation project. It owns the project's view state and its timeline group.
class Project : public BaseNode
{
    Q_OBJECT
public:
    static constexpr int NoTextWidthLimit = 2147483647;

    explicit Project(QObject *parent = nullptr);

    int nodeType() const override { return ProjectType; }
    // Copies every header field, the id included; the state and the timelines stay.
    bool copyFrom(const BaseNode *other) override;
    QString contentHash() const override;

    // Clears every text and list, deletes the timelines, forgets the history, resets the view
    // state and sets the defaults: type 0, no text width limit, online id -1, video id -1, relative video path on.
    void reset();
    // reset(), a fresh id, and one timeline for `user` with the default labels.
    Timeline *startNew(const QString &user);
    // A new timeline owned by `owner`, given the default labels, added to the group and to the
    // header's timeline ids.
    Timeline *createTimeline(const QString &owner);
    // Replaces this project's header and timelines by those of `other` (which loses its timelines).
    void takeContentFrom(Project *other);

    int projectType() const { return m_projectType; }
    int maxTextWidth() const { return m_maxTextWidth; }
    qint64 onlineId() const { return m_onlineId; }
    QString title() const { return m_title; }
    QString description() const { return m_description; }
    int videoId() const { return m_videoId; }
    QString videoPath() const { return m_videoPath; }
    // Length in seconds of the project's video; 0.0 while there is none (coding is then off).
    double videoLength() const { return m_videoLength; }
    bool useRelativePath() const { return m_useRelativePath; }
    const QList<Id> &timelineIds() const { return m_timelineIds; }
    QString owner() const { return m_owner; }
    QString offlineUser() const { return m_offlineUser; }

    void setProjectType(int type);
    void setMaxTextWidth(int width);
    void setOnlineId(qint64 id);
    void setTitle(const QString &title);
    void setDescription(const QString &description);
    void setVideoId(int id);
    void setVideoPath(const QString &path);
    void setVideoLength(double seconds);
    void setUseRelativePath(bool on);
    void setTimelineIds(const QList<Id> &ids);
    void setOwner(const QString &owner);
    void setOfflineUser(const QString &user);

    State *state() const { return m_state; }
    TimelineGroup *timelineGroup() const { return m_group; }
    // The document's one undo history; every change made through a view is a step of it.
    History *history() const { return m_history; }

Q_SIGNALS:
    void changed();
    void projectTypeChanged();

private:
    template <typename T> void assign(T &field, const T &value);

    int m_projectType = 0;
    int m_maxTextWidth = NoTextWidthLimit;
    qint64 m_onlineId = -1;
    QString m_title;
    QString m_description;
    int m_videoId = -1;
    QString m_videoPath;
    double m_videoLength = 0.0;
    bool m_useRelativePath = true;
    QList<Id> m_timelineIds;
    QString m_owner;
    QString m_offlineUser;
    State *m_state;
    TimelineGroup *m_group;
    History *m_history;
};

} // namespace OVProject
