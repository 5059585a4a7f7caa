#include "app/ovshortcutedit.h"

#include <QKeyEvent>

OVShortcutEdit::OVShortcutEdit(QWidget *parent) : QLineEdit(parent)
{
    setReadOnly(true);
    setPlaceholderText(tr("Press a key combination"));
}

void OVShortcutEdit::setKeySequence(const QKeySequence &sequence)
{
    m_sequence = sequence;
    setText(sequence.toString(QKeySequence::NativeText));
    Q_EMIT keySequenceChanged(sequence);
}

QString OVShortcutEdit::codingConflict(const QKeySequence &sequence)
{
    if (sequence.isEmpty())
        return {};
    for (int i = 0; i < sequence.count(); ++i) {
        const QKeyCombination combo = sequence[i];
        const Qt::KeyboardModifiers mods = combo.keyboardModifiers() & ~(Qt::KeypadModifier | Qt::ShiftModifier);
        if (mods & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
            continue;
        const int key = int(combo.key());
        // Printable keys (letters, digits, punctuation, space) are what label keys are made of.
        if (key >= Qt::Key_Space && key <= Qt::Key_ydiaeresis)
            return tr("\"%1\" has no Ctrl, Alt or Meta key: pressed while coding it would also code a label. "
                      "Add a modifier or use a function key.")
                .arg(sequence.toString(QKeySequence::NativeText));
    }
    return {};
}

bool OVShortcutEdit::event(QEvent *event)
{
    // Tab and Backtab are ordinary keys here, not focus moves.
    if (event->type() == QEvent::KeyPress) {
        keyPressEvent(static_cast<QKeyEvent *>(event));
        return true;
    }
    return QLineEdit::event(event);
}

void OVShortcutEdit::keyPressEvent(QKeyEvent *event)
{
    const int key = event->key();
    if (key == Qt::Key_unknown || key == Qt::Key_Control || key == Qt::Key_Shift || key == Qt::Key_Alt
        || key == Qt::Key_Meta || key == Qt::Key_AltGr)
        return; // wait for the key that completes the combination
    Qt::KeyboardModifiers mods = event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier
                                                        | Qt::MetaModifier | Qt::KeypadModifier);
    setKeySequence(QKeySequence(QKeyCombination(mods, Qt::Key(key))));
}
