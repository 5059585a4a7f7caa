#include "sync/ovsampleswidget.h"

#include "sync/ovsamples.h"
#include "sync/ovwaveforms.h"
#include "widgets/ovwaveformpyramid.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>
#include <limits>

namespace {
constexpr double WheelZoomStep = 1.25;
} // namespace

OVSamplesWidget::OVSamplesWidget(QWidget *parent)
    : QWidget(parent), m_cursor(std::numeric_limits<double>::quiet_NaN()), m_color(40, 90, 160)
{
    setMinimumHeight(60);
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

OVSamplesWidget::~OVSamplesWidget()
{
    if (m_builder) {
        m_builder->disconnect(this);
        m_builder->cancel();
        m_builder->wait();
    }
}

void OVSamplesWidget::setSamples(const OVSamples *samples)
{
    if (m_builder) {
        // The old build reads the old samples: it must be done before they may go.
        m_builder->disconnect(this);
        m_builder->cancel();
        m_builder->wait();
        // Later: a report already on its way names it, and its address must not be reused yet.
        m_builder->deleteLater();
        m_builder = nullptr;
    }
    m_samples = samples;
    m_waveform.reset();
    if (samples && samples->count > 0) {
        OVWaveforms *builder = new OVWaveforms(samples, this);
        m_builder = builder;
        connect(builder, &QThread::finished, this, [this, builder] {
            if (builder == m_builder)
                onWaveformsFinished();
        });
        m_builder->start(QThread::LowPriority);
    }
    update();
}

void OVSamplesWidget::onWaveformsFinished()
{
    if (!m_builder)
        return;
    m_waveform = m_builder->pyramid();
    m_builder->deleteLater();
    m_builder = nullptr;
    update();
}

void OVSamplesWidget::setPps(double pps)
{
    applyPps(pps, false);
}

void OVSamplesWidget::applyPps(double pps, bool byUser)
{
    if (!std::isfinite(pps))
        return;
    pps = std::clamp(pps, MinPps, MaxPps);
    if (pps == m_pps)
        return;
    m_pps = pps;
    update();
    if (byUser)
        Q_EMIT ppsChanged();
}

void OVSamplesWidget::setOffset(double seconds)
{
    applyOffset(seconds, false);
}

void OVSamplesWidget::applyOffset(double seconds, bool byUser)
{
    if (!std::isfinite(seconds) || seconds == m_offset)
        return;
    m_offset = seconds;
    update();
    if (byUser)
        Q_EMIT offsetChanged();
}

void OVSamplesWidget::zoomAt(double pps, double x)
{
    const double anchor = timeAt(x);
    applyPps(pps, true);
    applyOffset(anchor - x / m_pps, true);
}

void OVSamplesWidget::setColor(const QColor &color)
{
    m_color = color;
    update();
}

void OVSamplesWidget::setTitle(const QString &title)
{
    m_title = title;
    update();
}

void OVSamplesWidget::setCursorTime(double seconds)
{
    if (seconds == m_cursor || (std::isnan(seconds) && std::isnan(m_cursor)))
        return;
    m_cursor = seconds;
    update();
}

void OVSamplesWidget::addMarker(const Marker &marker)
{
    removeMarker(marker.id);
    m_markers.append(marker);
    update();
}

bool OVSamplesWidget::removeMarker(const QString &id)
{
    for (qsizetype i = 0; i < m_markers.size(); ++i) {
        if (m_markers[i].id == id) {
            m_markers.removeAt(i);
            update();
            return true;
        }
    }
    return false;
}

void OVSamplesWidget::clearMarkers()
{
    m_markers.clear();
    update();
}

bool OVSamplesWidget::setMarkerTime(const QString &id, double seconds)
{
    for (Marker &m : m_markers) {
        if (m.id == id) {
            m.time = seconds;
            update();
            return true;
        }
    }
    return false;
}

QString OVSamplesWidget::markerAt(double x) const
{
    QString best;
    double bestDistance = MarkerGrabPixels;
    for (const Marker &m : m_markers) {
        const double d = std::abs(xAt(m.time) - x);
        if (d < bestDistance) {
            bestDistance = d;
            best = m.id;
        }
    }
    return best;
}

void OVSamplesWidget::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(245, 245, 245));
    // The track's own extent, so that where it starts and ends shows at any offset.
    if (m_samples && m_samples->sampleRate > 0) {
        const double left = std::max(0.0, xAt(0.0));
        const double right = std::min<double>(width(), xAt(m_samples->duration()));
        if (right > left)
            p.fillRect(QRectF(left, 0, right - left, height()), Qt::white);
    }
    p.setPen(QColor(210, 210, 210));
    p.drawLine(0, height() / 2, width(), height() / 2);
    if (m_waveform)
        m_waveform->paint(p, rect(), m_offset, m_pps, m_color);
    else if (m_samples && m_samples->count > 0) {
        p.setPen(Qt::darkGray);
        p.drawText(rect(), Qt::AlignCenter, tr("Preparing waveform") + QStringLiteral("..."));
    }

    const QFontMetrics fm = p.fontMetrics();
    for (const Marker &m : std::as_const(m_markers)) {
        const double x = xAt(m.time);
        if (x < -50 || x > width() + 50)
            continue;
        const QColor c = m.color.isValid() ? m.color : QColor(200, 40, 40);
        p.setPen(QPen(c, m.id == m_dragMarker ? 2 : 1));
        p.drawLine(QPointF(x, 0), QPointF(x, height()));
        if (!m.text.isEmpty()) {
            const QRectF flag(x + 1, 1, fm.horizontalAdvance(m.text) + 6, fm.height() + 2);
            p.fillRect(flag, c);
            p.setPen(Qt::white);
            p.drawText(flag, Qt::AlignCenter, m.text);
        }
    }
    if (std::isfinite(m_cursor)) {
        const double x = xAt(m_cursor);
        p.setPen(QPen(QColor(0, 150, 0), 1));
        p.drawLine(QPointF(x, 0), QPointF(x, height()));
    }
    if (!m_title.isEmpty()) {
        p.setPen(QColor(90, 90, 90));
        p.drawText(rect().adjusted(6, 0, -6, -4), Qt::AlignLeft | Qt::AlignBottom, m_title);
    }
}

void OVSamplesWidget::mousePressEvent(QMouseEvent *event)
{
    const double x = event->position().x();
    if (event->button() == Qt::RightButton) {
        Q_EMIT rightClicked(timeAt(x), markerAt(x));
        return;
    }
    if (event->button() != Qt::LeftButton)
        return;
    m_pressX = x;
    m_pressOffset = m_offset;
    m_dragMarker = markerAt(x);
    if (!m_dragMarker.isEmpty())
        m_drag = Drag::Marker;
    else if (m_draggable)
        m_drag = Drag::Strip;
    update();
}

void OVSamplesWidget::mouseMoveEvent(QMouseEvent *event)
{
    const double x = event->position().x();
    switch (m_drag) {
    case Drag::Strip:
        applyOffset(m_pressOffset - (x - m_pressX) / m_pps, true);
        break;
    case Drag::Marker:
        setMarkerTime(m_dragMarker, timeAt(x));
        break;
    case Drag::None:
        setCursor(markerAt(x).isEmpty() ? (m_draggable ? Qt::OpenHandCursor : Qt::ArrowCursor) : Qt::SizeHorCursor);
        break;
    }
}

void OVSamplesWidget::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_drag == Drag::Marker && event->position().x() != m_pressX)
        Q_EMIT markerMoved(m_dragMarker, timeAt(event->position().x()));
    m_drag = Drag::None;
    m_dragMarker.clear();
    update();
}

void OVSamplesWidget::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const double x = event->position().x();
    Q_EMIT doubleClicked(timeAt(x), markerAt(x));
}

void OVSamplesWidget::wheelEvent(QWheelEvent *event)
{
    const int delta = event->angleDelta().y();
    if (delta == 0)
        return;
    const double x = event->position().x();
    if (event->modifiers() & Qt::ShiftModifier) {
        // Scroll by a tenth of the visible time per notch.
        applyOffset(m_offset - delta / 120.0 * width() / m_pps / 10.0, true);
    } else {
        zoomAt(m_pps * std::pow(WheelZoomStep, delta / 120.0), x);
    }
    event->accept();
}
