#include "timeline/ovtlsegmentdialog.h"

#include "log/ovtimeformat.h"
#include "project/segment.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>

OVTLSegmentDialog::OVTLSegmentDialog(QWidget *parent)
    : QDialog(parent)
    , m_start(new QLineEdit(this))
    , m_end(new QLineEdit(this))
    , m_open(new QCheckBox(tr("Still open"), this))
    , m_author(new QLabel(this))
    , m_description(new QPlainTextEdit(this))
    , m_error(new QLabel(this))
{
    setWindowTitle(tr("Segment"));
    auto *form = new QFormLayout(this);
    form->addRow(tr("Start:"), m_start);
    form->addRow(tr("End:"), m_end);
    form->addRow(QString(), m_open);
    form->addRow(tr("Author:"), m_author);
    form->addRow(tr("Description:"), m_description);
    m_error->setStyleSheet(QStringLiteral("color:#b00"));
    form->addRow(m_error);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
    m_open->setVisible(false);
    connect(m_start, &QLineEdit::textChanged, this, &OVTLSegmentDialog::validate);
    connect(m_end, &QLineEdit::textChanged, this, &OVTLSegmentDialog::validate);
    connect(m_open, &QCheckBox::toggled, this, [this](bool on) {
        m_end->setEnabled(!on);
        validate();
    });
}

void OVTLSegmentDialog::setValues(double start, double end, const QString &author, const QString &description)
{
    const bool open = end == OVProject::Segment::OpenEnd;
    m_start->setText(OVTimeFormat::format(start));
    m_end->setText(open ? OVTimeFormat::format(start) : OVTimeFormat::format(end));
    m_open->setVisible(open);
    m_open->setChecked(open);
    m_author->setText(author);
    m_description->setPlainText(description);
    validate();
}

double OVTLSegmentDialog::start() const
{
    double v = 0.0;
    return OVTimeFormat::parse(m_start->text().trimmed(), &v) ? v : -1.0;
}

double OVTLSegmentDialog::end() const
{
    if (m_open->isChecked())
        return OVProject::Segment::OpenEnd;
    double v = 0.0;
    return OVTimeFormat::parse(m_end->text().trimmed(), &v) ? v : -1.0;
}

QString OVTLSegmentDialog::description() const { return m_description->toPlainText(); }

bool OVTLSegmentDialog::isValid() const
{
    double s = 0.0;
    if (!OVTimeFormat::parse(m_start->text().trimmed(), &s) || s < 0.0)
        return false;
    if (m_open->isChecked())
        return true;
    double e = 0.0;
    return OVTimeFormat::parse(m_end->text().trimmed(), &e) && e >= s;
}

void OVTLSegmentDialog::validate()
{
    const bool ok = isValid();
    m_ok->setEnabled(ok);
    m_error->setText(ok ? QString() : tr("Enter a start and an end time (the end not before the start)."));
}
