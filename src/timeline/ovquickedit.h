#pragma once

#include <QLineEdit>

// A frameless line editor over the label name: Return accepts, Escape or leaving cancels.
class OVQuickEdit : public QLineEdit
{
    Q_OBJECT
public:
    explicit OVQuickEdit(const QString &text, QWidget *parent = nullptr);
    void popup(const QPoint &globalPos, int width);

Q_SIGNALS:
    void accepted(QString text);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    bool m_done = false;
};
