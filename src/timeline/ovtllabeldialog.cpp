#include "timeline/ovtllabeldialog.h"

#include "timeline/ovlabelpalette.h"

#include <QButtonGroup>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>

OVTLLabelDialog::OVTLLabelDialog(QWidget *parent)
    : QDialog(parent)
    , m_name(new QLineEdit(this))
    , m_key(new QLineEdit(this))
    , m_description(new QPlainTextEdit(this))
    , m_colors(new QButtonGroup(this))
    , m_problem(new QLabel(this))
{
    setWindowTitle(tr("Label"));
    m_key->setMaxLength(1);
    m_key->setMaximumWidth(40);
    connect(m_key, &QLineEdit::textEdited, this, [this](const QString &t) {
        m_key->setText(t.toUpper());
        m_problem->hide();
    });
    m_problem->setStyleSheet(QStringLiteral("color: #b00000;"));
    m_problem->setWordWrap(true);
    m_problem->hide();

    auto *grid = new QGridLayout;
    grid->setSpacing(2);
    const QList<QColor> &colors = OVLabelPalette::colors();
    for (int i = 0; i < colors.size(); ++i) {
        auto *b = new QToolButton(this);
        b->setCheckable(true);
        b->setFixedSize(22, 22);
        b->setToolTip(colors.at(i).name().toUpper());
        b->setStyleSheet(QStringLiteral("QToolButton{background:%1;border:1px solid #777;} QToolButton:checked{border:3px solid black;}").arg(colors.at(i).name()));
        m_colors->addButton(b, i);
        grid->addWidget(b, i / 8, i % 8);
    }
    connect(m_colors, &QButtonGroup::idClicked, this, [this](int id) { m_color = OVLabelPalette::colors().value(id); });

    auto *form = new QFormLayout(this);
    form->addRow(tr("Name:"), m_name);
    form->addRow(tr("Key:"), m_key);
    form->addRow(m_problem);
    form->addRow(tr("Colour:"), grid);
    form->addRow(tr("Description:"), m_description);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_name, &QLineEdit::textChanged, this, [buttons](const QString &t) { buttons->button(QDialogButtonBox::Ok)->setEnabled(!t.trimmed().isEmpty()); });
    form->addRow(buttons);
}

void OVTLLabelDialog::setValues(const QString &name, QChar key, const QColor &color, const QString &description)
{
    m_name->setText(name);
    m_key->setText(key.isNull() ? QString() : QString(key.toUpper()));
    m_description->setPlainText(description);
    selectColor(color);
}

void OVTLLabelDialog::selectColor(const QColor &color)
{
    m_color = color;
    // A colour outside the palette (the default labels use Qt's own) stays until one is picked.
    const QList<QColor> &colors = OVLabelPalette::colors();
    m_colors->setExclusive(false);
    for (QAbstractButton *b : m_colors->buttons())
        b->setChecked(false);
    m_colors->setExclusive(true);
    for (int i = 0; i < colors.size(); ++i) {
        if (colors.at(i).rgb() == color.rgb())
            m_colors->button(i)->setChecked(true);
    }
}

QString OVTLLabelDialog::name() const { return m_name->text().trimmed(); }

QChar OVTLLabelDialog::key() const
{
    const QString t = m_key->text();
    return t.isEmpty() ? QChar() : t.at(0).toUpper();
}

QString OVTLLabelDialog::description() const { return m_description->toPlainText(); }

QString OVTLLabelDialog::keyProblem() const { return m_keyCheck ? m_keyCheck(key()) : QString(); }

void OVTLLabelDialog::accept()
{
    const QString problem = keyProblem();
    if (!problem.isEmpty()) {
        m_problem->setText(problem);
        m_problem->show();
        m_key->setFocus();
        m_key->selectAll();
        return;
    }
    QDialog::accept();
}
