#pragma once

#include <QDialog>

class OVActionRegistry;
class OVSettings;
class OVLabelingSettingsWidget;
class QTabWidget;

// The settings dialog: one page per concern; OK applies every page.
class OVSettingsDlg : public QDialog
{
    Q_OBJECT
public:
    // The keyboard page offers the live actions of `actions` (all of the table when null).
    OVSettingsDlg(OVSettings *settings, const OVActionRegistry *actions, QWidget *parent = nullptr);

    QTabWidget *pages() const { return m_tabs; }
    // Adds a page whose apply function runs when the dialog is accepted.
    void addPage(QWidget *page, const QString &title, std::function<void()> apply);

private Q_SLOTS:
    void onAccepted();

private:
    QTabWidget *m_tabs;
    QList<std::function<void()>> m_apply;
};
