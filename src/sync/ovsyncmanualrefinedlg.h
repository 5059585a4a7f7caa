#pragma once

#include "sync/ovsamples.h"

#include <QDialog>

class OVAudioOutSamples;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;
class QTimer;

// "Fine Tune" for one marker: both tracks are heard around the marker, in a loop, mixed with
// their own volumes; the offset between them is nudged until the two sound as one (an echo or a
// hollow, phasey sound means they are still apart). The owner does the searching: it answers
// autoRefineRequested() and follows changed().
class OVSyncManualRefineDlg : public QDialog
{
    Q_OBJECT

public:
    // How far one nudge moves the secondary.
    static constexpr double NudgeSeconds = 0.001;

    OVSyncManualRefineDlg(const OVSamples *primary, const OVSamples *secondary, QWidget *parent = nullptr);
    ~OVSyncManualRefineDlg() override;

    // The marker being tuned: its primary time, the offset (primary − secondary seconds) and how
    // well the two tracks correlate there.
    void setMarker(double primarySeconds, double offsetSeconds, double coefficient);
    double primaryPosition() const { return m_primaryPos; }
    double offset() const;
    void setOffset(double seconds);
    void setCoefficient(double coefficient);
    double loopDuration() const;
    // 0 ... 1
    double volume1() const;
    double volume2() const;

public Q_SLOTS:
    void onLeftClicked();
    void onRightClicked();

Q_SIGNALS:
    void changed();
    void autoRefineRequested();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void scheduleReplay();
    void replay();

    const OVSamples *m_primary;
    const OVSamples *m_secondary;
    double m_primaryPos = 0.0;
    QDoubleSpinBox *m_offset = nullptr;
    QDoubleSpinBox *m_loop = nullptr;
    QSpinBox *m_vol1 = nullptr;
    QSpinBox *m_vol2 = nullptr;
    QLabel *m_coeff = nullptr;
    QLabel *m_audioState = nullptr;
    QPushButton *m_left = nullptr;
    QPushButton *m_right = nullptr;
    QPushButton *m_refine = nullptr;
    QTimer *m_replay = nullptr;
    OVAudioOutSamples *m_player = nullptr;
};
