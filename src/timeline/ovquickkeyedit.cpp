#include "timeline/ovquickkeyedit.h"

#include <QKeyEvent>

OVQuickKeyEdit::OVQuickKeyEdit(QWidget *parent)
    : QLabel(parent, Qt::Popup)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setFrameStyle(QFrame::Box | QFrame::Plain);
    setMargin(6);
    setText(tr("Press the new key (Delete clears, Escape cancels)"));
    setFocusPolicy(Qt::StrongFocus);
}

void OVQuickKeyEdit::popup(const QPoint &globalPos)
{
    move(globalPos);
    show();
    setFocus(Qt::PopupFocusReason);
}

void OVQuickKeyEdit::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
        Q_EMIT keyChosen(QChar());
        close();
        return;
    }
    const QString text = event->text();
    if (text.size() == 1 && text.at(0).isPrint() && !text.at(0).isSpace()) {
        const QString problem = m_keyCheck ? m_keyCheck(text.at(0).toUpper()) : QString();
        if (!problem.isEmpty()) {
            setText(problem + QStringLiteral("\n") + tr("Press another key (Escape cancels)"));
            adjustSize();
            return;
        }
        Q_EMIT keyChosen(text.at(0).toUpper());
        close();
        return;
    }
    QLabel::keyPressEvent(event);
}
