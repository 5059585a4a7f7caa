#pragma once

#include <QToolButton>

class OVVolumePopup;

// The player's volume button: shows the volume (or that sound is off) and opens the popup.
class OVVolumeControl : public QToolButton
{
    Q_OBJECT

public:
    explicit OVVolumeControl(QWidget *parent = nullptr);

    double volume() const;
    bool isMuted() const;
    void setVolume(double volume);
    void setMuted(bool muted);
    OVVolumePopup *popup() const { return m_popup; }

public Q_SLOTS:
    void showPopup();

Q_SIGNALS:
    void volumeChanged();

private:
    void onPopupVolumeChanged();
    void updateText();

    OVVolumePopup *m_popup = nullptr;
};
