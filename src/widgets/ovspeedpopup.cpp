#include "widgets/ovspeedpopup.h"

#include "widgets/ovwidgetslogging.h"

#include <QDebug>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>

OVSpeedPopup::OVSpeedPopup(QWidget *parent) : QWidget(parent)
{
    setMinimumSize(36, 60);
    setToolTip(tr("Playback speed"));
}

QSize OVSpeedPopup::sizeHint() const
{
    return QSize(48, 160);
}

double OVSpeedPopup::speedForY(double y, int height)
{
    const double mid = (height - TrackMargin) / 2.0;
    if (mid <= 0.0)
        return 1.0;
    const double p = y - TrackTop;
    if (p < mid)
        return 1.0 + (mid - p) * (MaxSpeed - 1.0) / mid;
    return 1.0 - (p - mid) / (MaxSpeed * mid);
}

double OVSpeedPopup::yForSpeed(double speed, int height)
{
    const double mid = (height - TrackMargin) / 2.0;
    double p;
    if (speed >= 1.0)
        p = mid - (speed - 1.0) * mid / (MaxSpeed - 1.0);
    else
        p = mid + (1.0 - speed) * MaxSpeed * mid;
    return p + TrackTop;
}

void OVSpeedPopup::setSpeed(double speed)
{
    if (speed == m_speed)
        return;
    if (speed > 0.9 && speed < 1.1)
        speed = 1.0;
    speed = std::clamp(speed, MinSpeed, MaxSpeed);
    // After snapping the value may be the one we have: nothing to tell anyone.
    if (speed == m_speed)
        return;
    m_speed = speed;
    qCDebug(lcWidgets) << "SpeedPopup::speed set to:" << m_speed;
    update();
    Q_EMIT speedChanged(m_speed);
}

void OVSpeedPopup::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.fillRect(rect(), palette().window());

    const int h = height();
    const double x = width() / 2.0;
    const double top = TrackTop;
    const double bottom = TrackTop + (h - TrackMargin);
    p.setPen(QPen(palette().mid().color(), 3, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(x, top), QPointF(x, bottom));

    QFont small = font();
    small.setPointSizeF(std::max(6.0, small.pointSizeF() * 0.75));
    p.setFont(small);
    p.setPen(palette().text().color());
    for (double mark : {MinSpeed, 1.0, MaxSpeed}) {
        const double y = yForSpeed(mark, h);
        p.drawLine(QPointF(x - 6, y), QPointF(x - 2, y));
        p.drawText(QRectF(0, y - 6, x - 8, 12), Qt::AlignRight | Qt::AlignVCenter,
                   QString::number(mark, 'g', 2));
    }

    const double y = yForSpeed(m_speed, h);
    p.setPen(Qt::NoPen);
    p.setBrush(palette().highlight());
    p.drawEllipse(QPointF(x, y), 5, 5);
    p.setPen(palette().text().color());
    p.drawText(QRectF(x + 7, y - 7, width() - x - 7, 14), Qt::AlignLeft | Qt::AlignVCenter,
               QString::number(m_speed, 'f', 2));
}

void OVSpeedPopup::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        setSpeed(speedForY(event->position().y(), height()));
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}

void OVSpeedPopup::mouseMoveEvent(QMouseEvent *event)
{
    if (event->buttons() & Qt::LeftButton) {
        setSpeed(speedForY(event->position().y(), height()));
        event->accept();
        return;
    }
    QWidget::mouseMoveEvent(event);
}

void OVSpeedPopup::wheelEvent(QWheelEvent *event)
{
    if (event->angleDelta().y() > 0)
        setSpeed(m_speed * 1.1);
    else
        setSpeed(m_speed * 0.9);
    event->accept();
}
