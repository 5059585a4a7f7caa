#include "settings/ovuisettings.h"

OVUISettings::OVUISettings(QObject *parent) : OVSettingsGroup(QStringLiteral("User Interface"), parent)
{
    addKey(QStringLiteral("Language"), QVariant());
    addKey(QStringLiteral("disabledMessagesMd5"), QString());
    addKey(QStringLiteral("enabledViews"), QString());
    addKey(QStringLiteral("playerSize"), QString());
    addKey(QStringLiteral("timelineControlHeight"), -1);
    addKey(QStringLiteral("transcriptControlWidth"), -1);
    addKey(QStringLiteral("playbackVolume"), 1);
    addKey(QStringLiteral("waveformsHeight"), -1);
    addKey(QStringLiteral("autosave"), true);
    addKey(QStringLiteral("autosaveMinutes"), DefaultAutosaveMinutes);
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
