#pragma once

#include <QKeySequence>
#include <QLineEdit>

// Records one key combination as it is pressed (modifiers included) and shows it as text.
class OVShortcutEdit : public QLineEdit
{
    Q_OBJECT
public:
    explicit OVShortcutEdit(QWidget *parent = nullptr);

    QKeySequence keySequence() const { return m_sequence; }
    void setKeySequence(const QKeySequence &sequence);

    // Label keys code segments when pressed without modifiers, so an action shortcut made of a
    // bare character key would fire together with coding. Returns why `sequence` cannot be an
    // action shortcut, or an empty text when it can.
    static QString codingConflict(const QKeySequence &sequence);

Q_SIGNALS:
    void keySequenceChanged(const QKeySequence &sequence);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    bool event(QEvent *event) override;

private:
    QKeySequence m_sequence;
};
