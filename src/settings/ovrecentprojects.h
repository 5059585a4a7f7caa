#pragma once

#include "settings/ovsettingsgroup.h"

#include <QStringList>

// Paths of recently opened projects, newest first.
class OVRecentProjects : public OVSettingsGroup
{
    Q_OBJECT
public:
    static constexpr int MaxCount = 10;

    explicit OVRecentProjects(QObject *parent = nullptr);

    QStringList recentProjects() const;
    void setRecentProjects(const QStringList &paths);
    // Moves (or adds) `path` to the front and keeps at most MaxCount entries.
    void addProject(const QString &path);
    void removeProject(const QString &path);

    // Where playback of a recent project stood when it was last closed; 0 when unknown. Kept only
    // for the projects in the list, so the settings file does not grow with every project opened.
    double lastPosition(const QString &path) const;
    void setLastPosition(const QString &path, double seconds);
};
