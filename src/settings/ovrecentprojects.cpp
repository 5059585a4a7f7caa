#include "settings/ovrecentprojects.h"

#include <cmath>

namespace {
const QString kKey = QStringLiteral("recentProjects");
// Entries "<seconds>|<path>": the number first, since a path may hold any character.
const QString kPositionsKey = QStringLiteral("lastPositions");

QStringList stringList(const QVariant &v)
{
    // INI files give back a single entry as a plain string.
    return v.isValid() ? v.toStringList() : QStringList();
}
} // namespace

OVRecentProjects::OVRecentProjects(QObject *parent) : OVSettingsGroup(QStringLiteral("RecentProjects"), parent)
{
    addKey(kKey, QVariant());
    addKey(kPositionsKey, QVariant());
}

QStringList OVRecentProjects::recentProjects() const
{
    return stringList(value(kKey));
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

double OVRecentProjects::lastPosition(const QString &path) const
{
    for (const QString &entry : stringList(value(kPositionsKey))) {
        const qsizetype bar = entry.indexOf(QLatin1Char('|'));
        if (bar <= 0 || entry.mid(bar + 1) != path)
            continue;
        bool ok = false;
        const double seconds = entry.left(bar).toDouble(&ok);
        // A hand-edited or damaged file must not send the player somewhere absurd.
        return ok && std::isfinite(seconds) && seconds > 0.0 ? seconds : 0.0;
    }
    return 0.0;
}

void OVRecentProjects::setLastPosition(const QString &path, double seconds)
{
    const QStringList recent = recentProjects();
    QStringList kept;
    if (recent.contains(path) && std::isfinite(seconds) && seconds > 0.0)
        kept << QString::number(seconds, 'f', 3) + QLatin1Char('|') + path;
    for (const QString &entry : stringList(value(kPositionsKey))) {
        const QString entryPath = entry.mid(entry.indexOf(QLatin1Char('|')) + 1);
        if (entryPath != path && recent.contains(entryPath))
            kept << entry;
    }
    setValue(kPositionsKey, kept.isEmpty() ? QVariant() : QVariant(kept));
}
