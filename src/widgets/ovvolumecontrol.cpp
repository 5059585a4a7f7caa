#include "widgets/ovvolumecontrol.h"

#include "widgets/ovpopupplacement.h"
#include "widgets/ovvolumepopup.h"


#include <cmath>

OVVolumeControl::OVVolumeControl(QWidget *parent) : QToolButton(parent)
{
    m_popup = new OVVolumePopup(this);
    m_popup->setWindowFlags(Qt::Popup);
    m_popup->hide();
    connect(m_popup, &OVVolumePopup::volumeChanged, this, &OVVolumeControl::onPopupVolumeChanged);
    connect(this, &QToolButton::clicked, this, &OVVolumeControl::showPopup);
    setToolTip(tr("Volume"));
    updateText();
}

double OVVolumeControl::volume() const
{
    return m_popup->volume();
}

bool OVVolumeControl::isMuted() const
{
    return m_popup->isMuted();
}

void OVVolumeControl::setVolume(double volume)
{
    m_popup->setVolume(volume);
}

void OVVolumeControl::setMuted(bool muted)
{
    m_popup->setMuted(muted);
}

void OVVolumeControl::showPopup()
{
    m_popup->resize(m_popup->sizeHint().expandedTo(QSize(60, 150)));
    OVPopupPlacement::showBesides(this, m_popup);
}

void OVVolumeControl::onPopupVolumeChanged()
{
    updateText();
    Q_EMIT volumeChanged();
}

void OVVolumeControl::updateText()
{
    if (m_popup->isMuted())
        setText(tr("Muted"));
    else
        setText(QString::number(std::lround(m_popup->volume() * 100)) + QStringLiteral("%"));
}
