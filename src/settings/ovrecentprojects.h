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
};
