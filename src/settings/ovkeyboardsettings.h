#pragma once

#include "settings/ovsettingsgroup.h"

#include <QMap>

// User-assigned action shortcuts, stored as "Action<id>" keys beside the fixed "dummytext".
// An action without an entry uses its default shortcut; an entry with empty text means the user
// cleared the shortcut.
class OVKeyboardSettings : public OVSettingsGroup
{
    Q_OBJECT
public:
    explicit OVKeyboardSettings(QObject *parent = nullptr);

    static QString actionKey(int actionId);

    bool hasShortcut(int actionId) const { return m_shortcuts.contains(actionId); }
    QString shortcut(int actionId) const { return m_shortcuts.value(actionId); }
    QMap<int, QString> shortcuts() const { return m_shortcuts; }
    void setShortcut(int actionId, const QString &portableText);
    void resetShortcut(int actionId);

    void load(QSettings &settings) override;
    void save(QSettings &settings) const override;

private:
    QMap<int, QString> m_shortcuts;
};
