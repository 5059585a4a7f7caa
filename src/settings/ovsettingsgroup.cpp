#include "settings/ovsettingsgroup.h"

#include "settings/ovsettingslogging.h"

#include <QSettings>

OVSettingsGroup::OVSettingsGroup(const QString &name, QObject *parent) : QObject(parent), m_name(name) {}

QStringList OVSettingsGroup::keys() const
{
    QStringList list;
    for (const Entry &e : m_entries)
        list << e.key;
    return list;
}

int OVSettingsGroup::indexOf(const QString &key) const
{
    for (int i = 0; i < m_entries.size(); ++i) {
        if (m_entries[i].key == key)
            return i;
    }
    return -1;
}

void OVSettingsGroup::addKey(const QString &key, const QVariant &defaultValue)
{
    const int i = indexOf(key);
    if (i >= 0) {
        m_entries[i].defaultValue = defaultValue;
        m_entries[i].value = defaultValue;
        return;
    }
    m_entries.append({ key, defaultValue, defaultValue });
}

QVariant OVSettingsGroup::value(const QString &key) const
{
    const int i = indexOf(key);
    return i >= 0 ? m_entries[i].value : QVariant();
}

QVariant OVSettingsGroup::defaultValue(const QString &key) const
{
    const int i = indexOf(key);
    return i >= 0 ? m_entries[i].defaultValue : QVariant();
}

void OVSettingsGroup::setValue(const QString &key, const QVariant &value)
{
    const int i = indexOf(key);
    if (i < 0) {
        qCWarning(lcSettings).noquote() << "SettingsGroup" << m_name << "has no key" << key;
        return;
    }
    m_entries[i].value = value;
    Q_EMIT changed();
}

void OVSettingsGroup::load(QSettings &settings)
{
    settings.beginGroup(m_name);
    for (Entry &e : m_entries) {
        QVariant v = settings.value(e.key, e.defaultValue);
        // A value of the wrong kind (a hand-edited file) falls back to the default rather than
        // reaching code that expects, say, a colour.
        if (e.defaultValue.isValid() && v.isValid() && v.metaType() != e.defaultValue.metaType()
            && !v.canConvert(e.defaultValue.metaType())) {
            qCWarning(lcSettings).noquote() << "Settings:" << m_name + QLatin1Char('/') + e.key
                                 << "has an unusable value; using the default";
            v = e.defaultValue;
        }
        e.value = v;
    }
    settings.endGroup();
}

void OVSettingsGroup::save(QSettings &settings) const
{
    settings.beginGroup(m_name);
    for (const Entry &e : m_entries) {
        if (e.value.isValid())
            settings.setValue(e.key, e.value);
        else
            settings.remove(e.key);
    }
    settings.endGroup();
}
