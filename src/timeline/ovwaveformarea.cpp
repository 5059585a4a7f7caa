#include "timeline/ovwaveformarea.h"

#include <QPainter>

OVWaveformArea::OVWaveformArea(QWidget *parent)
    : QWidget(parent)
{
    setMinimumHeight(30);
}

void OVWaveformArea::setCursorX(int x)
{
    if (x == m_cursorX)
        return;
    m_cursorX = x;
    update();
}

void OVWaveformArea::setLoading(bool loading)
{
    m_loading = loading;
    update();
}

QString OVWaveformArea::message() const
{
    if (m_loading)
        return tr("Loading samples") + QStringLiteral("...");
    if (trackCount() == 0)
        return tr("No audio tracks found");
    return QString();
}

void OVWaveformArea::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(220, 220, 220));
    const QString text = message();
    if (!text.isEmpty()) {
        p.setPen(Qt::darkGray);
        p.drawText(rect(), Qt::AlignCenter | Qt::TextWordWrap, text);
    }
    if (m_cursorX >= 0 && m_cursorX < width()) {
        p.setPen(QPen(Qt::yellow, 3));
        p.drawLine(m_cursorX, 0, m_cursorX, height());
        p.setPen(QPen(Qt::red, 1));
        p.drawLine(m_cursorX, 0, m_cursorX, height());
    }
}
