#include "widgets/ovvolumepopup.h"

#include "widgets/ovwidgetslogging.h"

#include <QCheckBox>
#include <QDebug>
#include <QSignalBlocker>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {
int toSlider(double volume)
{
    return int(std::lround(volume / OVVolumePopup::VolumeStep));
}
} // namespace

OVVolumePopup::OVVolumePopup(QWidget *parent) : QWidget(parent)
{
    m_slider = new QSlider(Qt::Vertical, this);
    m_slider->setRange(0, toSlider(MaxVolume));
    m_slider->setSingleStep(1);
    m_slider->setPageStep(4);
    m_slider->setValue(toSlider(m_volume));
    m_slider->setToolTip(tr("Volume"));
    m_audio = new QCheckBox(tr("Audio"), this);
    m_audio->setChecked(true);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addWidget(m_slider, 1, Qt::AlignHCenter);
    layout->addWidget(m_audio, 0, Qt::AlignHCenter);

    connect(m_slider, &QSlider::valueChanged, this,
            [this](int value) { onSliderVolumeChanged(value * VolumeStep); });
    connect(m_audio, &QCheckBox::toggled, this, &OVVolumePopup::onSliderAudioToggled);
}

void OVVolumePopup::setVolume(double volume)
{
    volume = std::clamp(volume, 0.0, MaxVolume);
    {
        const QSignalBlocker block(m_slider);
        m_slider->setValue(toSlider(volume));
    }
    onSliderVolumeChanged(volume);
}

void OVVolumePopup::setMuted(bool muted)
{
    m_audio->setChecked(!muted); // reaches onSliderAudioToggled when it changes
}

void OVVolumePopup::onSliderVolumeChanged(double volume)
{
    volume = std::clamp(volume, 0.0, MaxVolume);
    if (volume == m_volume)
        return;
    m_volume = volume;
    qCDebug(lcWidgets) << "VolumePopup::volume set to:" << m_volume;
    Q_EMIT volumeChanged();
}

void OVVolumePopup::onSliderAudioToggled(bool on)
{
    if (m_muted == !on)
        return;
    m_muted = !on;
    qCDebug(lcWidgets) << "VolumePopup::muted set to:" << m_muted;
    Q_EMIT volumeChanged();
}
