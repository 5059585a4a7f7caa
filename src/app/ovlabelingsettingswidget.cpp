#include "app/ovlabelingsettingswidget.h"

#include "settings/ovlabelingsettings.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>

namespace {
QDoubleSpinBox *secondsBox(QWidget *parent, double value, double max)
{
    auto *box = new QDoubleSpinBox(parent);
    box->setRange(0, max);
    box->setDecimals(2);
    box->setSingleStep(0.5);
    box->setSuffix(QStringLiteral(" s"));
    box->setValue(value);
    return box;
}
} // namespace

OVLabelingSettingsWidget::OVLabelingSettingsWidget(OVLabelingSettings *settings, QWidget *parent)
    : QWidget(parent), m_settings(settings)
{
    auto *form = new QFormLayout(this);
    m_mode = new QComboBox(this);
    m_mode->setObjectName(QStringLiteral("cb_labelingMode"));
    m_mode->addItem(tr("Single Press Mode"), int(OVLabelingSettings::SinglePressMode));
    m_mode->addItem(tr("Double Press Mode"), int(OVLabelingSettings::DoublePressMode));
    m_mode->setCurrentIndex(settings->isDoublePressMode() ? 1 : 0);
    m_leadOpen = secondsBox(this, settings->leadOpenTime(), 3600);
    m_leadOpen->setObjectName(QStringLiteral("sb_leadOpen"));
    m_leadClose = secondsBox(this, settings->leadCloseTime(), 3600);
    m_leadClose->setObjectName(QStringLiteral("sb_leadClose"));
    m_duration = secondsBox(this, settings->defaultSegmentDuration(), 24 * 3600);
    m_duration->setObjectName(QStringLiteral("sb_duration"));
    m_duration->setMinimum(0.01);
    form->addRow(tr("Labeling Mode:"), m_mode);
    form->addRow(tr("Opening Lead Time:"), m_leadOpen);
    form->addRow(tr("Closing Lead Time:"), m_leadClose);
    form->addRow(tr("Duration:"), m_duration);
    m_loopLength = secondsBox(this, settings->loopLength(), 600);
    m_loopLength->setObjectName(QStringLiteral("sb_loopLength"));
    m_loopLength->setMinimum(1.0);
    form->addRow(tr("Loop Length:"), m_loopLength);
}

void OVLabelingSettingsWidget::apply()
{
    m_settings->setLeadOpenTime(m_leadOpen->value());
    m_settings->setLeadCloseTime(m_leadClose->value());
    m_settings->setDefaultSegmentDuration(m_duration->value());
    m_settings->setLoopLength(m_loopLength->value());
    m_settings->setLabelingMode(m_mode->currentData().toInt());
}
