#include "widgets/ovpopupplacement.h"

#include <QScreen>
#include <QWidget>

void OVPopupPlacement::showBesides(QWidget *anchor, QWidget *popup)
{
    QPoint at = anchor->mapToGlobal(QPoint(0, anchor->height()));
    if (const QScreen *s = anchor->screen()) {
        if (at.y() + popup->height() > s->availableGeometry().bottom())
            at = anchor->mapToGlobal(QPoint(0, -popup->height()));
    }
    popup->move(at);
    popup->show();
}
