#include "app/ovkeyboardsettingswidget.h"

#include "app/ovactionregistry.h"
#include "app/ovshortcutedit.h"
#include "settings/ovkeyboardsettings.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
enum Column { TitleColumn, CategoryColumn, ShortcutColumn };
constexpr int IdRole = Qt::UserRole + 1;
} // namespace

OVKeyboardSettingsWidget::OVKeyboardSettingsWidget(OVKeyboardSettings *settings, const OVActionRegistry *actions,
                                                   QWidget *parent)
    : QWidget(parent), m_settings(settings), m_tree(new QTreeWidget(this)), m_edit(new OVShortcutEdit(this)),
      m_set(new QPushButton(tr("Set"), this)), m_clear(new QPushButton(tr("Clear"), this)), m_message(new QLabel(this))
{
    setObjectName(QStringLiteral("KeyboardSettings"));
    m_tree->setObjectName(QStringLiteral("tw_actions"));
    m_tree->setHeaderLabels({ tr("Action"), tr("Category"), tr("Shortcut") });
    m_tree->setRootIsDecorated(false);
    m_tree->setSortingEnabled(false);
    m_edit->setObjectName(QStringLiteral("le_shortcut"));
    m_set->setObjectName(QStringLiteral("pb_set"));
    m_clear->setObjectName(QStringLiteral("pb_clear"));
    m_message->setObjectName(QStringLiteral("lb_message"));
    m_message->setWordWrap(true);
    auto *reset = new QPushButton(tr("Reset to Defaults"), this);
    reset->setObjectName(QStringLiteral("pb_reset"));

    for (const OVActionInfo &info : OVActionRegistry::table()) {
        m_pending.insert(info.id, OVActionRegistry::effectiveShortcut(info.id, settings));
        if (actions && !actions->isLive(info.id))
            continue;
        auto *item = new QTreeWidgetItem(m_tree);
        item->setText(TitleColumn, info.title);
        item->setText(CategoryColumn, info.category);
        item->setData(TitleColumn, IdRole, info.id);
        refreshRow(info.id);
    }
    m_tree->sortItems(CategoryColumn, Qt::AscendingOrder);
    m_tree->header()->setSectionResizeMode(TitleColumn, QHeaderView::Stretch);

    auto *editRow = new QHBoxLayout;
    editRow->addWidget(new QLabel(tr("Shortcut:"), this));
    editRow->addWidget(m_edit, 1);
    editRow->addWidget(m_set);
    editRow->addWidget(m_clear);
    editRow->addWidget(reset);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_tree, 1);
    layout->addLayout(editRow);
    layout->addWidget(m_message);

    connect(m_tree, &QTreeWidget::currentItemChanged, this, &OVKeyboardSettingsWidget::onItemChanged);
    connect(m_edit, &OVShortcutEdit::keySequenceChanged, this, &OVKeyboardSettingsWidget::onShortcutEditChanged);
    connect(m_set, &QPushButton::clicked, this, &OVKeyboardSettingsWidget::onSetClicked);
    connect(m_clear, &QPushButton::clicked, this, &OVKeyboardSettingsWidget::onClearClicked);
    connect(reset, &QPushButton::clicked, this, &OVKeyboardSettingsWidget::onResetToDefaults);
    onItemChanged();
}

int OVKeyboardSettingsWidget::currentActionId() const
{
    const QTreeWidgetItem *item = m_tree->currentItem();
    return item ? item->data(TitleColumn, IdRole).toInt() : -1;
}

QString OVKeyboardSettingsWidget::pendingShortcut(int actionId) const { return m_pending.value(actionId); }
QString OVKeyboardSettingsWidget::lastMessage() const { return m_message->text(); }

void OVKeyboardSettingsWidget::refreshRow(int actionId)
{
    for (int i = 0; i < m_tree->topLevelItemCount(); ++i) {
        QTreeWidgetItem *item = m_tree->topLevelItem(i);
        if (item->data(TitleColumn, IdRole).toInt() == actionId) {
            item->setText(ShortcutColumn, QKeySequence(m_pending.value(actionId), QKeySequence::PortableText)
                                              .toString(QKeySequence::NativeText));
            return;
        }
    }
}

void OVKeyboardSettingsWidget::setPending(int actionId, const QString &portableText)
{
    m_pending.insert(actionId, portableText);
    refreshRow(actionId);
}

void OVKeyboardSettingsWidget::onItemChanged()
{
    const int id = currentActionId();
    m_set->setEnabled(false);
    m_clear->setEnabled(id >= 0);
    m_edit->setEnabled(id >= 0);
    m_message->clear();
    if (id >= 0)
        m_edit->setKeySequence(QKeySequence(m_pending.value(id), QKeySequence::PortableText));
    m_set->setEnabled(false);
}

void OVKeyboardSettingsWidget::onShortcutEditChanged()
{
    const int id = currentActionId();
    const QKeySequence seq = m_edit->keySequence();
    const QString conflict = OVShortcutEdit::codingConflict(seq);
    if (!conflict.isEmpty()) {
        m_message->setText(conflict);
        m_set->setEnabled(false);
        return;
    }
    QStringList others;
    const QString text = seq.toString(QKeySequence::PortableText);
    for (auto it = m_pending.cbegin(); it != m_pending.cend(); ++it) {
        if (it.key() != id && !text.isEmpty()
            && QKeySequence(it.value(), QKeySequence::PortableText) == seq)
            others << OVActionRegistry::info(it.key())->title;
    }
    m_message->setText(others.isEmpty() ? QString() : tr("Also used by: %1").arg(others.join(QStringLiteral(", "))));
    m_set->setEnabled(id >= 0 && text != QKeySequence(m_pending.value(id), QKeySequence::PortableText)
                                              .toString(QKeySequence::PortableText));
}

void OVKeyboardSettingsWidget::onSetClicked()
{
    const int id = currentActionId();
    const QKeySequence seq = m_edit->keySequence();
    const QString conflict = OVShortcutEdit::codingConflict(seq);
    if (id < 0 || !conflict.isEmpty()) {
        m_message->setText(conflict);
        return;
    }
    setPending(id, seq.toString(QKeySequence::PortableText));
    m_set->setEnabled(false);
}

void OVKeyboardSettingsWidget::onClearClicked()
{
    const int id = currentActionId();
    if (id < 0)
        return;
    setPending(id, QString());
    m_edit->setKeySequence(QKeySequence());
    m_set->setEnabled(false);
}

void OVKeyboardSettingsWidget::onResetToDefaults()
{
    for (const OVActionInfo &info : OVActionRegistry::table())
        setPending(info.id, info.defaultShortcut);
    onItemChanged();
}

void OVKeyboardSettingsWidget::apply()
{
    // Store only what differs from the defaults, so later changes of a default reach the user.
    for (const OVActionInfo &info : OVActionRegistry::table()) {
        const QString pending = m_pending.value(info.id);
        const bool isDefault = QKeySequence(pending, QKeySequence::PortableText)
            == QKeySequence(info.defaultShortcut, QKeySequence::PortableText);
        if (isDefault) {
            if (m_settings->hasShortcut(info.id))
                m_settings->resetShortcut(info.id);
        } else if (!m_settings->hasShortcut(info.id) || m_settings->shortcut(info.id) != pending) {
            m_settings->setShortcut(info.id, pending);
        }
    }
}
