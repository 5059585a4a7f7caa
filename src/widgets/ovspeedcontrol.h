#pragma once

#include <QToolButton>

class OVSpeedPopup;

// The player's speed button: shows the current speed and opens the speed bar below it.
class OVSpeedControl : public QToolButton
{
    Q_OBJECT

public:
    explicit OVSpeedControl(QWidget *parent = nullptr);

    double speed() const;
    void setSpeed(double speed);
    // The bar the button opens (owned by the button).
    OVSpeedPopup *popup() const { return m_popup; }

public Q_SLOTS:
    void showPopup();

Q_SIGNALS:
    void speedChanged(double speed);

private:
    void onPopupSpeedChanged(double speed);
    void updateText();

    OVSpeedPopup *m_popup = nullptr;
};
