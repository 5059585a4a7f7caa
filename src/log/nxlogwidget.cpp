#include "log/nxlogwidget.h"

#include "log/nxlog.h"
#include "log/nxlogevent.h"

#include <QPlainTextEdit>
#include <QVBoxLayout>

NXLogWidget::NXLogWidget(QWidget *parent) : QWidget(parent), m_text(new QPlainTextEdit(this))
{
    m_text->setObjectName(QStringLiteral("pt_log"));
    m_text->setReadOnly(true);
    // A long session can log a lot; keep the view responsive.
    m_text->setMaximumBlockCount(20000);
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_text);
    setWindowTitle(tr("Log"));
    NXLog::addReceiver(this);
}

NXLogWidget::~NXLogWidget()
{
    NXLog::removeReceiver(this);
}

bool NXLogWidget::event(QEvent *event)
{
    if (event->type() == NXLog::LogEvent::EventType) {
        QString line = static_cast<NXLog::LogEvent *>(event)->line();
        if (line.endsWith(QLatin1Char('\n')))
            line.chop(1);
        m_text->appendPlainText(line);
        return true;
    }
    return QWidget::event(event);
}
