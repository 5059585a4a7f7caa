#pragma once

#include <QWidget>

class OVUISettings;
class QCheckBox;
class QSpinBox;

// The page of the settings dialog about saving: automatic saving of the open project.
class OVSavingSettingsWidget : public QWidget
{
    Q_OBJECT
public:
    explicit OVSavingSettingsWidget(OVUISettings *settings, QWidget *parent = nullptr);

    // Writes the page's values into the settings (when the dialog is accepted).
    void apply();

private:
    OVUISettings *m_settings;
    QCheckBox *m_autosave;
    QSpinBox *m_minutes;
};
