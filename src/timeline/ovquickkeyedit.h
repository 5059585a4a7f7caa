#pragma once

#include <QChar>
#include <QLabel>

// A popup that waits for one key: a printable key sets the label's key (upper case), Escape
// cancels, Delete clears it.
class OVQuickKeyEdit : public QLabel
{
    Q_OBJECT
public:
    explicit OVQuickKeyEdit(QWidget *parent = nullptr);
    void popup(const QPoint &globalPos);

Q_SIGNALS:
    void keyChosen(QChar key);

protected:
    void keyPressEvent(QKeyEvent *event) override;
};
