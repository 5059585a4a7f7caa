#pragma once

#include <QWidget>

class QCheckBox;
class QSlider;

// The volume popup: a slider for the gain and a switch that turns the sound on and off.
class OVVolumePopup : public QWidget
{
    Q_OBJECT

public:
    // The slider runs from 0 to MaxVolume in steps of VolumeStep.
    static constexpr double MaxVolume = 2.0;
    static constexpr double VolumeStep = 0.05;

    explicit OVVolumePopup(QWidget *parent = nullptr);

    double volume() const { return m_volume; }
    bool isMuted() const { return m_muted; }
    void setVolume(double volume);
    void setMuted(bool muted);

    QSlider *slider() const { return m_slider; }
    QCheckBox *audioSwitch() const { return m_audio; }

public Q_SLOTS:
    void onSliderVolumeChanged(double volume);
    // The switch says whether sound is on: off mutes.
    void onSliderAudioToggled(bool on);

Q_SIGNALS:
    void volumeChanged();

private:
    QSlider *m_slider = nullptr;
    QCheckBox *m_audio = nullptr;
    double m_volume = 1.0;
    bool m_muted = false;
};
