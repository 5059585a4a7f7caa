#pragma once

#include "timeline/ovtimemapping.h"

#include <QWidget>

// The ruler above the timeline. It shows the time under each part of the rows, a click on it asks
// to play from the time clicked, and dragging it sideways zooms in or out. Its value is log10 of
// the pixels per second, so equal drags change the zoom by equal factors.
class OVTimeScaleWidget : public QWidget
{
    Q_OBJECT
public:
    explicit OVTimeScaleWidget(QWidget *parent = nullptr);

    static double ppsForValue(double value);
    static double valueForPps(double pps);

    double value() const { return m_value; }
    // Sets the value without emitting valueChanged() (the timeline itself changed the zoom).
    void setValue(double value);
    // The timeline's current mapping, so the ticks line up with the rows below.
    void setMapping(const OVTimeMapping &mapping);
    const OVTimeMapping &mapping() const { return m_mapping; }

    // Seconds between two labelled ticks at the current zoom (at least 80 pixels apart).
    double tickStep() const;

    QSize sizeHint() const override;

Q_SIGNALS:
    void valueChanged(double value);
    // A click (a press released without dragging) at this time, in seconds.
    void seekRequested(double time);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    double m_value = 0.0;
    OVTimeMapping m_mapping;
    int m_pressX = -1;
    double m_pressValue = 0.0;
    // The press has moved far enough to be a zoom drag rather than a click.
    bool m_dragging = false;
};
