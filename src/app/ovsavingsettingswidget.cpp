#include "app/ovsavingsettingswidget.h"

#include "settings/ovuisettings.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QSpinBox>

OVSavingSettingsWidget::OVSavingSettingsWidget(OVUISettings *settings, QWidget *parent)
    : QWidget(parent), m_settings(settings)
{
    auto *form = new QFormLayout(this);
    m_autosave = new QCheckBox(tr("Save the open project automatically"), this);
    m_autosave->setObjectName(QStringLiteral("cb_autosave"));
    m_autosave->setChecked(settings->autosave());
    m_minutes = new QSpinBox(this);
    m_minutes->setObjectName(QStringLiteral("sb_autosaveMinutes"));
    m_minutes->setRange(1, 120);
    m_minutes->setSuffix(tr(" min"));
    m_minutes->setValue(settings->autosaveMinutes());
    m_minutes->setEnabled(m_autosave->isChecked());
    connect(m_autosave, &QCheckBox::toggled, m_minutes, &QWidget::setEnabled);
    form->addRow(m_autosave);
    form->addRow(tr("Every:"), m_minutes);
    auto *note = new QLabel(tr("Only a project that was saved to a file before is saved automatically, and only "
                               "when it has changes. Every change is also recorded as it is made, and offered back "
                               "if Kavot ends without saving."), this);
    note->setWordWrap(true);
    form->addRow(note);
}

void OVSavingSettingsWidget::apply()
{
    m_settings->setAutosave(m_autosave->isChecked());
    m_settings->setAutosaveMinutes(m_minutes->value());
}
