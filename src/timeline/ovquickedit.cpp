#include "timeline/ovquickedit.h"

#include <QKeyEvent>

OVQuickEdit::OVQuickEdit(const QString &text, QWidget *parent)
    : QLineEdit(text, parent)
{
    setWindowFlags(Qt::Popup);
    setAttribute(Qt::WA_DeleteOnClose);
    selectAll();
}

void OVQuickEdit::popup(const QPoint &globalPos, int width)
{
    move(globalPos);
    resize(std::max(width, 80), sizeHint().height());
    show();
    setFocus(Qt::PopupFocusReason);
}

void OVQuickEdit::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (!m_done) {
            m_done = true;
            Q_EMIT accepted(text());
        }
        close();
        return;
    }
    if (event->key() == Qt::Key_Escape) {
        m_done = true;
        close();
        return;
    }
    QLineEdit::keyPressEvent(event);
}

void OVQuickEdit::focusOutEvent(QFocusEvent *event)
{
    QLineEdit::focusOutEvent(event);
    m_done = true;
    close();
}
