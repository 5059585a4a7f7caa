#pragma once

#include <QChar>
#include <QLabel>

#include <functional>

// A popup that waits for one key: a printable key sets the label's key (upper case), Escape
// cancels, Delete clears it.
class OVQuickKeyEdit : public QLabel
{
    Q_OBJECT
public:
    explicit OVQuickKeyEdit(QWidget *parent = nullptr);
    void popup(const QPoint &globalPos);
    // Says why a key cannot be taken, empty when it can; a refused key leaves the popup open
    // with the reason shown.
    void setKeyCheck(std::function<QString(QChar key)> check) { m_keyCheck = std::move(check); }

Q_SIGNALS:
    void keyChosen(QChar key);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    std::function<QString(QChar key)> m_keyCheck;
};
