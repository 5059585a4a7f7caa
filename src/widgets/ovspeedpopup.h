#pragma once

#include <QWidget>

// A vertical bar that picks the playback speed between 1 / MaxSpeed and MaxSpeed: the top of the
// track is the fastest, its middle normal speed, its bottom the slowest. The upper half is
// linear in speed up to MaxSpeed, the lower half linear down to 1 / MaxSpeed, so both ends are
// equally easy to reach.
class OVSpeedPopup : public QWidget
{
    Q_OBJECT

public:
    static constexpr double MaxSpeed = 2.0;
    static constexpr double MinSpeed = 1.0 / MaxSpeed;
    // The track starts this far from the top and is (height − TrackMargin) pixels long.
    static constexpr int TrackTop = 5;
    static constexpr int TrackMargin = 9;

    explicit OVSpeedPopup(QWidget *parent = nullptr);

    double speed() const { return m_speed; }

    // The pointer-to-speed mapping of a bar `height` pixels high, and its inverse.
    static double speedForY(double y, int height);
    static double yForSpeed(double speed, int height);

    QSize sizeHint() const override;

public Q_SLOTS:
    // Values strictly between 0.9 and 1.1 snap to 1.0; the result is clamped to the range.
    // Emits speedChanged() when the stored speed changes.
    void setSpeed(double speed);

Q_SIGNALS:
    void speedChanged(double speed);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    double m_speed = 1.0;
};
