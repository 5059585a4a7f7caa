#pragma once

#include <QWidget>

class OVLabelingSettings;
class QComboBox;
class QDoubleSpinBox;

// The settings page of keyboard coding: mode, lead times and the single-press duration.
class OVLabelingSettingsWidget : public QWidget
{
    Q_OBJECT
public:
    explicit OVLabelingSettingsWidget(OVLabelingSettings *settings, QWidget *parent = nullptr);

    // Writes the fields into the settings group.
    void apply();

private:
    OVLabelingSettings *m_settings;
    QComboBox *m_mode;
    QDoubleSpinBox *m_leadOpen;
    QDoubleSpinBox *m_leadClose;
    QDoubleSpinBox *m_duration;
    QDoubleSpinBox *m_loopLength;
};
