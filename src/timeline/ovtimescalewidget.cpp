#include "timeline/ovtimescalewidget.h"

#include "log/ovtimeformat.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {
// Drag distance that changes the zoom tenfold.
constexpr double PixelsPerDecade = 200.0;
constexpr int MinTickPixels = 80;
} // namespace

OVTimeScaleWidget::OVTimeScaleWidget(QWidget *parent)
    : QWidget(parent)
{
    setCursor(Qt::SizeHorCursor);
    setToolTip(tr("Click to play from there, drag sideways to zoom"));
}

double OVTimeScaleWidget::ppsForValue(double value) { return std::pow(10.0, value); }
double OVTimeScaleWidget::valueForPps(double pps) { return pps > 0.0 ? std::log10(pps) : 0.0; }

void OVTimeScaleWidget::setValue(double value)
{
    m_value = value;
    update();
}

void OVTimeScaleWidget::setMapping(const OVTimeMapping &mapping)
{
    m_mapping = mapping;
    update();
}

QSize OVTimeScaleWidget::sizeHint() const { return QSize(400, 22); }

double OVTimeScaleWidget::tickStep() const
{
    static const double steps[] = { 0.01, 0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 18000, 36000 };
    for (double s : steps) {
        if (s * m_mapping.pps >= MinTickPixels)
            return s;
    }
    return 86400.0;
}

void OVTimeScaleWidget::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), palette().window());
    const int left = int(m_mapping.left);
    p.setPen(palette().color(QPalette::Mid));
    p.drawLine(left, height() - 1, width(), height() - 1);
    const double step = tickStep();
    const int digits = step < 0.1 ? 2 : (step < 1.0 ? 1 : 0);
    double t = std::floor(std::max(0.0, m_mapping.timeAt(left)) / step) * step;
    const double last = m_mapping.timeAt(width());
    p.setPen(palette().color(QPalette::WindowText));
    for (; t <= last; t += step) {
        const int x = m_mapping.xAt(t);
        if (x < left)
            continue;
        p.drawLine(x, height() - 7, x, height() - 1);
        const int minor = m_mapping.xAt(t + step / 2);
        p.drawLine(minor, height() - 4, minor, height() - 1);
        p.drawText(x + 3, height() - 8, OVTimeFormat::format(t, digits));
    }
}

void OVTimeScaleWidget::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_pressX = int(event->position().x());
    m_pressValue = m_value;
    m_dragging = false;
}

void OVTimeScaleWidget::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressX < 0 || !(event->buttons() & Qt::LeftButton))
        return;
    const double dx = event->position().x() - m_pressX;
    // A hand that trembles while clicking must not zoom.
    if (!m_dragging && std::abs(dx) < QApplication::startDragDistance())
        return;
    m_dragging = true;
    const double v = m_pressValue + dx / PixelsPerDecade;
    if (v == m_value)
        return;
    m_value = v;
    update();
    Q_EMIT valueChanged(v);
}

void OVTimeScaleWidget::mouseReleaseEvent(QMouseEvent *event)
{
    const bool click = m_pressX >= 0 && !m_dragging && event->button() == Qt::LeftButton;
    m_pressX = -1;
    m_dragging = false;
    const double x = event->position().x();
    // Left of the rows' time area the ruler shows no time.
    if (!click || x < m_mapping.left)
        return;
    Q_EMIT seekRequested(std::max(0.0, m_mapping.timeAt(x)));
}
