#include "app/ovsettingsdlg.h"

#include "app/ovkeyboardsettingswidget.h"
#include "app/ovlabelingsettingswidget.h"
#include "app/ovsavingsettingswidget.h"
#include "settings/ovsettings.h"

#include <functional>

#include <QDialogButtonBox>
#include <QTabWidget>
#include <QVBoxLayout>

OVSettingsDlg::OVSettingsDlg(OVSettings *settings, const OVActionRegistry *actions, QWidget *parent)
    : QDialog(parent), m_tabs(new QTabWidget(this))
{
    setWindowTitle(tr("Settings"));
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tabs);
    auto *labeling = new OVLabelingSettingsWidget(settings->labeling(), this);
    addPage(labeling, tr("Labeling"), [labeling] { labeling->apply(); });
    auto *keyboard = new OVKeyboardSettingsWidget(settings->keyboard(), actions, this);
    addPage(keyboard, tr("Keyboard Settings"), [keyboard] { keyboard->apply(); });
    auto *saving = new OVSavingSettingsWidget(settings->ui(), this);
    addPage(saving, tr("Saving"), [saving] { saving->apply(); });
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(this, &QDialog::accepted, this, &OVSettingsDlg::onAccepted);
    layout->addWidget(buttons);
}

void OVSettingsDlg::addPage(QWidget *page, const QString &title, std::function<void()> apply)
{
    m_tabs->addTab(page, title);
    m_apply << std::move(apply);
}

void OVSettingsDlg::onAccepted()
{
    for (const auto &apply : std::as_const(m_apply))
        apply();
}
