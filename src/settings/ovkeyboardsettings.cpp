#include "settings/ovkeyboardsettings.h"

#include "settings/ovsettingslogging.h"

#include <QSettings>

namespace {
const QString kActionPrefix = QStringLiteral("Action");
}

OVKeyboardSettings::OVKeyboardSettings(QObject *parent) : OVSettingsGroup(QStringLiteral("KeyboardSettings"), parent)
{
    addKey(QStringLiteral("dummytext"), QStringLiteral("Dummy text"));
}

QString OVKeyboardSettings::actionKey(int actionId)
{
    return QStringLiteral("Action%1").arg(actionId);
}

void OVKeyboardSettings::setShortcut(int actionId, const QString &portableText)
{
    m_shortcuts.insert(actionId, portableText);
    Q_EMIT changed();
}

void OVKeyboardSettings::resetShortcut(int actionId)
{
    if (m_shortcuts.remove(actionId) > 0)
        Q_EMIT changed();
}

void OVKeyboardSettings::load(QSettings &settings)
{
    OVSettingsGroup::load(settings);
    m_shortcuts.clear();
    settings.beginGroup(name());
    const QStringList keys = settings.childKeys();
    for (const QString &key : keys) {
        if (!key.startsWith(kActionPrefix))
            continue;
        bool ok = false;
        const int id = key.mid(kActionPrefix.size()).toInt(&ok);
        if (!ok) {
            qCWarning(lcSettings).noquote() << "KeyboardSettings: ignoring malformed key" << key;
            continue;
        }
        m_shortcuts.insert(id, settings.value(key).toString());
    }
    settings.endGroup();
}

void OVKeyboardSettings::save(QSettings &settings) const
{
    OVSettingsGroup::save(settings);
    settings.beginGroup(name());
    // Drop entries that were reset since the last save.
    const QStringList keys = settings.childKeys();
    for (const QString &key : keys) {
        if (key.startsWith(kActionPrefix))
            settings.remove(key);
    }
    for (auto it = m_shortcuts.cbegin(); it != m_shortcuts.cend(); ++it)
        settings.setValue(actionKey(it.key()), it.value());
    settings.endGroup();
}
