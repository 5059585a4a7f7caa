#include "widgets/ovspeedcontrol.h"

#include "widgets/ovspeedpopup.h"

#include <QScreen>

OVSpeedControl::OVSpeedControl(QWidget *parent) : QToolButton(parent)
{
    m_popup = new OVSpeedPopup(this);
    m_popup->setWindowFlags(Qt::Popup);
    m_popup->hide();
    connect(m_popup, &OVSpeedPopup::speedChanged, this, &OVSpeedControl::onPopupSpeedChanged);
    connect(this, &QToolButton::clicked, this, &OVSpeedControl::showPopup);
    setToolTip(tr("Playback speed"));
    updateText();
}

double OVSpeedControl::speed() const
{
    return m_popup->speed();
}

void OVSpeedControl::setSpeed(double speed)
{
    m_popup->setSpeed(speed);
}

void OVSpeedControl::showPopup()
{
    m_popup->resize(m_popup->sizeHint());
    QPoint at = mapToGlobal(QPoint(0, height()));
    // Open upwards when the bar would leave the screen (the controls sit at the bottom).
    if (const QScreen *s = screen()) {
        if (at.y() + m_popup->height() > s->availableGeometry().bottom())
            at = mapToGlobal(QPoint(0, -m_popup->height()));
    }
    m_popup->move(at);
    m_popup->show();
}

void OVSpeedControl::onPopupSpeedChanged(double speed)
{
    updateText();
    Q_EMIT speedChanged(speed);
}

void OVSpeedControl::updateText()
{
    setText(QString::number(m_popup->speed(), 'f', 2) + QStringLiteral("x"));
}
