#include "timeline/ovtoolrow.h"

#include <QBoxLayout>
#include <QResizeEvent>

#include <algorithm>

OVToolRow::OVToolRow(QWidget *parent)
    : QWidget(parent)
    , m_outer(new QBoxLayout(QBoxLayout::LeftToRight, this))
    , m_leading(new QHBoxLayout)
    , m_trailing(new QHBoxLayout)
{
    m_outer->setContentsMargins(4, 2, 4, 2);
    m_outer->addLayout(m_leading, 1);
    m_outer->addLayout(m_trailing);
    // Stacked, the trailing group keeps to the right edge as it does side by side.
    m_trailing->addStretch(1);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

bool OVToolRow::isStacked() const { return m_outer->direction() == QBoxLayout::TopToBottom; }

QSize OVToolRow::minimumSizeHint() const
{
    const QMargins m = m_outer->contentsMargins();
    const int width = std::max(m_leading->minimumSize().width(), m_trailing->minimumSize().width()) + m.left() + m.right();
    return { width, m_outer->minimumSize().height() };
}

void OVToolRow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    arrange(event->size().width());
}

void OVToolRow::arrange(int width)
{
    const QMargins m = m_outer->contentsMargins();
    const int sideBySide = m_leading->sizeHint().width() + m_outer->spacing() + m_trailing->sizeHint().width() + m.left() + m.right();
    const auto direction = width < sideBySide ? QBoxLayout::TopToBottom : QBoxLayout::LeftToRight;
    if (direction == m_outer->direction())
        return;
    m_outer->setDirection(direction);
    // The height changes with the arrangement; the parent layout has to hear of it.
    updateGeometry();
}
