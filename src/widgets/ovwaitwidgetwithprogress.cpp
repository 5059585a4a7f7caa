#include "widgets/ovwaitwidgetwithprogress.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

OVWaitWidgetWithProgress::OVWaitWidgetWithProgress(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("waitWidget"));
    setStyleSheet(QStringLiteral(".QLabel{color:lightgray;font-size:20px;}\n.QPushButton{font-size:18px;padding:5px}\n"));
    m_label = new QLabel(this);
    m_label->setAlignment(Qt::AlignCenter);
    m_label->setWordWrap(true);
    m_bar = new QProgressBar(this);
    m_bar->setTextVisible(false);
    m_bar->setMaximumWidth(400);
    m_cancel = new QPushButton(tr("Cancel"), this);
    m_cancel->setObjectName(QStringLiteral("btn_waitCancel"));
    connect(m_cancel, &QPushButton::clicked, this, &OVWaitWidgetWithProgress::onCancel);

    auto *layout = new QVBoxLayout(this);
    layout->addStretch();
    layout->addWidget(m_label);
    layout->addWidget(m_bar, 0, Qt::AlignHCenter);
    layout->addWidget(m_cancel, 0, Qt::AlignHCenter);
    layout->addStretch();

    parent->installEventFilter(this);
    hide();
}

QString OVWaitWidgetWithProgress::text() const
{
    return m_label->text();
}

bool OVWaitWidgetWithProgress::canCancel() const
{
    return m_cancel->isEnabled();
}

void OVWaitWidgetWithProgress::startWait(const QString &text)
{
    m_label->setText(text);
    setProgress(0, 0, 0);
    m_cancel->setEnabled(true);
    setGeometry(parentWidget()->rect());
    raise();
    show();
    // Keys typed meanwhile must not reach the widgets below.
    setFocus();
    const bool was = m_waiting;
    m_waiting = true;
    if (!was)
        Q_EMIT waitStarted();
}

void OVWaitWidgetWithProgress::setText(const QString &text)
{
    // After a cancel the pane keeps saying so until the work has really stopped.
    if (m_waiting && !m_cancel->isEnabled())
        return;
    m_label->setText(text);
}

void OVWaitWidgetWithProgress::endWait()
{
    hide();
    if (!m_waiting)
        return;
    m_waiting = false;
    Q_EMIT waitFinished();
}

void OVWaitWidgetWithProgress::setProgress(int val, int min, int max)
{
    if (max <= min) {
        m_bar->setRange(0, 0);
        return;
    }
    m_bar->setRange(min, max);
    m_bar->setValue(std::clamp(val, min, max));
}

void OVWaitWidgetWithProgress::setCancelEnabled(bool enabled)
{
    m_cancel->setEnabled(enabled);
}

void OVWaitWidgetWithProgress::onCancel()
{
    m_cancel->setEnabled(false);
    m_label->setText(tr("Canceled by the user"));
    Q_EMIT cancelClicked();
}

bool OVWaitWidgetWithProgress::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

void OVWaitWidgetWithProgress::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(0, 0, 0, 180));
}
