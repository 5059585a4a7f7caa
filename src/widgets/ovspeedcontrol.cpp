#include "widgets/ovspeedcontrol.h"

#include "widgets/ovpopupplacement.h"
#include "widgets/ovspeedpopup.h"


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
    OVPopupPlacement::showBesides(this, m_popup);
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
