#include "app/ovprojectdetailsdlg.h"

#include "project/project.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QSpinBox>

OVProjectDetailsDlg::OVProjectDetailsDlg(OVProject::Project *project, QWidget *parent)
    : QDialog(parent), m_project(project)
{
    setWindowTitle(tr("Project Details"));
    auto *form = new QFormLayout(this);
    m_title = new QLineEdit(project->title(), this);
    m_title->setObjectName(QStringLiteral("le_title"));
    m_description = new QPlainTextEdit(project->description(), this);
    m_description->setObjectName(QStringLiteral("pt_description"));
    m_description->setMaximumHeight(100);
    m_uuid = new QLineEdit(project->id(), this);
    m_uuid->setObjectName(QStringLiteral("le_uuid"));
    m_uuid->setReadOnly(true);
    m_videoPath = new QLineEdit(project->videoPath(), this);
    m_videoPath->setObjectName(QStringLiteral("le_videoPath"));
    m_videoPath->setReadOnly(true);
    m_relative = new QCheckBox(tr("Store Relative Path"), this);
    m_relative->setObjectName(QStringLiteral("cb_relativePath"));
    m_relative->setChecked(project->useRelativePath());
    m_type = new QComboBox(this);
    m_type->setObjectName(QStringLiteral("cb_projectType"));
    m_type->addItem(tr("Regular Project"), 0);
    m_type->addItem(tr("Conversation Analysis Project"), 1);
    m_type->setCurrentIndex(qMax(0, m_type->findData(project->projectType())));
    m_textWidth = new QSpinBox(this);
    m_textWidth->setObjectName(QStringLiteral("sb_textWidth"));
    m_textWidth->setRange(10, 10000);
    m_textWidth->setSuffix(tr(" characters"));
    m_noLimit = new QCheckBox(tr("No limit"), this);
    m_noLimit->setObjectName(QStringLiteral("cb_noLimit"));
    const bool unlimited = project->maxTextWidth() == OVProject::Project::NoTextWidthLimit;
    m_noLimit->setChecked(unlimited);
    m_textWidth->setValue(unlimited ? 80 : project->maxTextWidth());
    m_textWidth->setEnabled(!unlimited);
    connect(m_noLimit, &QCheckBox::toggled, m_textWidth, &QWidget::setDisabled);
    auto *widthRow = new QHBoxLayout;
    widthRow->addWidget(m_textWidth, 1);
    widthRow->addWidget(m_noLimit);

    form->addRow(tr("Title:"), m_title);
    form->addRow(tr("Description:"), m_description);
    form->addRow(tr("Project UUID"), m_uuid);
    form->addRow(tr("Video:"), m_videoPath);
    form->addRow(QString(), m_relative);
    form->addRow(tr("Project Type:"), m_type);
    form->addRow(tr("Max Text Width:"), widthRow);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    resize(560, 360);
}

void OVProjectDetailsDlg::accept()
{
    m_project->setTitle(m_title->text().trimmed());
    m_project->setDescription(m_description->toPlainText());
    m_project->setUseRelativePath(m_relative->isChecked());
    m_project->setProjectType(m_type->currentData().toInt());
    m_project->setMaxTextWidth(m_noLimit->isChecked() ? OVProject::Project::NoTextWidthLimit : m_textWidth->value());
    QDialog::accept();
}
