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
