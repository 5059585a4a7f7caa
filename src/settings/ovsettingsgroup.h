#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>

class QSettings;

// One INI section of the user's preferences: an ordered list of keys with defaults and values.
// Subclasses register their keys in their constructors and add typed accessors.
class OVSettingsGroup : public QObject
{
    Q_OBJECT
public:
    explicit OVSettingsGroup(const QString &name, QObject *parent = nullptr);

    QString name() const { return m_name; }
    QStringList keys() const;

    QVariant value(const QString &key) const;
    QVariant defaultValue(const QString &key) const;
    // Emits changed() on every call, as listeners re-read whatever they show.
    void setValue(const QString &key, const QVariant &value);

    virtual void load(QSettings &settings);
    virtual void save(QSettings &settings) const;

Q_SIGNALS:
    void changed();

protected:
    void addKey(const QString &key, const QVariant &defaultValue);

private:
    struct Entry
    {
        QString key;
        QVariant defaultValue;
        QVariant value;
    };
    int indexOf(const QString &key) const;

    QString m_name;
    QList<Entry> m_entries;
};
