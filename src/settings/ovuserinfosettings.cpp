#include "settings/ovuserinfosettings.h"

OVUserInfoSettings::OVUserInfoSettings(QObject *parent) : OVSettingsGroup(QStringLiteral("UserInfoSettings"), parent)
{
    addKey(QStringLiteral("username"), QString());
    addKey(QStringLiteral("password"), QString());
}
