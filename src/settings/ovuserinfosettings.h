#pragma once

#include "settings/ovsettingsgroup.h"

// The remembered login of the web service. The password is kept as the user typed it: the file
// lives in the user's own data folder, and there is no web service to log in to yet.
class OVUserInfoSettings : public OVSettingsGroup
{
    Q_OBJECT
public:
    explicit OVUserInfoSettings(QObject *parent = nullptr);

    QString username() const { return value(QStringLiteral("username")).toString(); }
    void setUsername(const QString &name) { setValue(QStringLiteral("username"), name); }
    QString password() const { return value(QStringLiteral("password")).toString(); }
    void setPassword(const QString &password) { setValue(QStringLiteral("password"), password); }
};
