#include "settings/ovuisettings.h"

namespace {
const QString kEnabledViews = QStringLiteral("enabledViews");
// Entries "<n>|<path>", newest first: the number first, since a path may hold any character.
const QString kAudioStreams = QStringLiteral("playingAudioStreams");

QStringList stringList(const QVariant &v)
{
    // INI files give back a single entry as a plain string.
    return v.isValid() ? v.toStringList() : QStringList();
}
} // namespace

OVUISettings::OVUISettings(QObject *parent) : OVSettingsGroup(QStringLiteral("User Interface"), parent)
{
    addKey(QStringLiteral("Language"), QVariant());
    addKey(QStringLiteral("disabledMessagesMd5"), QString());
    addKey(kEnabledViews, QString());
    addKey(QStringLiteral("playerSize"), QString());
    addKey(QStringLiteral("timelineControlHeight"), -1);
    addKey(QStringLiteral("transcriptControlWidth"), -1);
    addKey(QStringLiteral("playbackVolume"), 1);
    addKey(QStringLiteral("waveformsHeight"), -1);
    addKey(QStringLiteral("autosave"), true);
    addKey(QStringLiteral("autosaveMinutes"), DefaultAutosaveMinutes);
    addKey(kAudioStreams, QVariant());
}

// "enabledViews" holds "name=1,name=0": a view never saved is absent, so each view keeps its own
// default, and views this version does not know are kept for the one that does.
bool OVUISettings::viewEnabled(const QString &view, bool byDefault) const
{
    const QStringList entries = value(kEnabledViews).toString().split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString &entry : entries) {
        const qsizetype eq = entry.indexOf(QLatin1Char('='));
        if (eq > 0 && entry.left(eq).trimmed() == view)
            return entry.mid(eq + 1).trimmed() != QLatin1String("0");
    }
    return byDefault;
}

void OVUISettings::setViewEnabled(const QString &view, bool on)
{
    QStringList kept;
    for (const QString &entry : value(kEnabledViews).toString().split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (entry.left(entry.indexOf(QLatin1Char('='))).trimmed() != view)
            kept << entry.trimmed();
    }
    kept << view + (on ? QStringLiteral("=1") : QStringLiteral("=0"));
    setValue(kEnabledViews, kept.join(QLatin1Char(',')));
}

int OVUISettings::playingAudioStream(const QString &mediaPath) const
{
    for (const QString &entry : stringList(value(kAudioStreams))) {
        const qsizetype bar = entry.indexOf(QLatin1Char('|'));
        if (bar <= 0 || entry.mid(bar + 1) != mediaPath)
            continue;
        bool ok = false;
        const int nth = entry.left(bar).toInt(&ok);
        // A hand-edited file must not ask the player for a stream no file has.
        return ok && nth >= 0 && nth < 1000 ? nth : 0;
    }
    return 0;
}

void OVUISettings::setPlayingAudioStream(const QString &mediaPath, int nth)
{
    if (mediaPath.isEmpty())
        return;
    QStringList kept;
    // The first stream is what plays anyway: only other choices take room.
    if (nth > 0)
        kept << QString::number(nth) + QLatin1Char('|') + mediaPath;
    for (const QString &entry : stringList(value(kAudioStreams))) {
        if (kept.size() >= MaxRememberedStreams)
            break;
        if (entry.mid(entry.indexOf(QLatin1Char('|')) + 1) != mediaPath)
            kept << entry;
    }
    setValue(kAudioStreams, kept.isEmpty() ? QVariant() : QVariant(kept));
}

bool OVUISettings::autosave() const
{
    // INI files hold text: "true"/"false" read back as strings.
    const QVariant v = value(QStringLiteral("autosave"));
    return v.toString().compare(QStringLiteral("false"), Qt::CaseInsensitive) != 0 && v.toString() != QStringLiteral("0");
}

int OVUISettings::autosaveMinutes() const
{
    const int v = intValue(QStringLiteral("autosaveMinutes"));
    return v >= 1 && v <= 120 ? v : DefaultAutosaveMinutes;
}

int OVUISettings::intValue(const QString &key) const
{
    bool ok = false;
    const int v = value(key).toInt(&ok);
    return ok ? v : defaultValue(key).toInt();
}

double OVUISettings::playbackVolume() const
{
    bool ok = false;
    const double v = value(QStringLiteral("playbackVolume")).toDouble(&ok);
    return ok && v >= 0 && v <= 4 ? v : 1.0;
}
