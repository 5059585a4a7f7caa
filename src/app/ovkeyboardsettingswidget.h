#pragma once

#include <QMap>
#include <QWidget>

class OVActionRegistry;
class OVKeyboardSettings;
class OVShortcutEdit;
class QLabel;
class QTreeWidget;
class QPushButton;

// The "Keyboard Settings" page: the keyboard actions with their category and shortcut. Changes are
// kept on the page until apply() writes them into the settings. With a registry the page lists
// only the actions that do something (OVActionRegistry::isLive()); the shortcuts stored for the
// others are kept as they are.
class OVKeyboardSettingsWidget : public QWidget
{
    Q_OBJECT
public:
    OVKeyboardSettingsWidget(OVKeyboardSettings *settings, const OVActionRegistry *actions,
                             QWidget *parent = nullptr);

    void apply();
    // The shortcut the page currently shows for `actionId` (portable text).
    QString pendingShortcut(int actionId) const;
    QString lastMessage() const;

public Q_SLOTS:
    void onItemChanged();
    void onShortcutEditChanged();
    void onSetClicked();
    void onClearClicked();
    void onResetToDefaults();

private:
    int currentActionId() const;
    void setPending(int actionId, const QString &portableText);
    void refreshRow(int actionId);

    OVKeyboardSettings *m_settings;
    QTreeWidget *m_tree;
    OVShortcutEdit *m_edit;
    QPushButton *m_set;
    QPushButton *m_clear;
    QLabel *m_message;
    // actionId -> shortcut in force on the page (portable text; empty = none)
    QMap<int, QString> m_pending;
};
