#include "settings/ovrecentprojects.h"

namespace {
const QString kKey = QStringLiteral("recentProjects");
}

OVRecentProjects::OVRecentProjects(QObject *parent) : OVSettingsGroup(QStringLiteral("RecentProjects"), parent)
{
    addKey(kKey, QVariant());
}

QStringList OVRecentProjects::recentProjects() const
{
    const QVariant v = value(kKey);
    if (!v.isValid())
        return {};
    // INI files give back a single entry as a plain string.
    return v.toStringList();
}

void OVRecentProjects::setRecentProjects(const QStringList &paths)
{
    setValue(kKey, paths.isEmpty() ? QVariant() : QVariant(paths));
}

void OVRecentProjects::addProject(const QString &path)
{
    QStringList list = recentProjects();
    list.removeAll(path);
    list.prepend(path);
    while (list.size() > MaxCount)
        list.removeLast();
    setRecentProjects(list);
}

void OVRecentProjects::removeProject(const QString &path)
{
    QStringList list = recentProjects();
    if (list.removeAll(path) > 0)
        setRecentProjects(list);
}
