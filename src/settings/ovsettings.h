#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

class OVKeyboardSettings;
class OVOverlaySettings;
class OVUserInfoSettings;
class OVLabelingSettings;
class OVRecentProjects;
class OVUISettings;
class OVSettingsGroup;

// All preferences of the user, one group per INI section of "settings.ini". Read once when opened,
// written back (coalesced) whenever a group changes, and on saveNow().
class OVSettings : public QObject
{
    Q_OBJECT
public:
    // A settings file is a few kilobytes; anything far larger is not one.
    static constexpr qint64 MaxFileSize = 1024 * 1024;

    explicit OVSettings(QObject *parent = nullptr);
    ~OVSettings() override;

    // The instance the application opened; null before.
    static OVSettings *instance();

    // Opens and loads the INI file. Returns false (and keeps every default) when the file exists but
    // cannot be read or parsed; a damaged file is moved aside so the next save does not lose it
    // silently and does not fail either.
    bool open(const QString &iniPath);
    QString fileName() const { return m_path; }
    QString lastError() const { return m_lastError; }
    // Where open() put a damaged file; empty when it did not move one.
    QString movedAsidePath() const { return m_movedAside; }

    bool saveNow();

    OVKeyboardSettings *keyboard() const { return m_keyboard; }
    OVOverlaySettings *overlay() const { return m_overlay; }
    OVUserInfoSettings *userInfo() const { return m_userInfo; }
    OVLabelingSettings *labeling() const { return m_labeling; }
    OVRecentProjects *recentProjects() const { return m_recent; }
    OVUISettings *ui() const { return m_ui; }
    QList<OVSettingsGroup *> groups() const;

Q_SIGNALS:
    void saveFailed(const QString &message);

private Q_SLOTS:
    void onGroupChanged();

private:
    OVKeyboardSettings *m_keyboard;
    OVOverlaySettings *m_overlay;
    OVUserInfoSettings *m_userInfo;
    OVLabelingSettings *m_labeling;
    OVRecentProjects *m_recent;
    OVUISettings *m_ui;
    QString m_path;
    QString m_lastError;
    QString m_movedAside;
    QTimer m_saveTimer;
    bool m_loading = false;
};
