#include "timeline/ovquickcoloredit.h"

#include "timeline/ovlabelpalette.h"

#include <QGridLayout>
#include <QToolButton>

OVQuickColorEdit::OVQuickColorEdit(const QColor &current, QWidget *parent)
    : QFrame(parent, Qt::Popup)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setFrameStyle(QFrame::Box | QFrame::Plain);
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(3, 3, 3, 3);
    grid->setSpacing(2);
    const QList<QColor> &colors = OVLabelPalette::colors();
    for (int i = 0; i < colors.size(); ++i) {
        const QColor c = colors.at(i);
        auto *b = new QToolButton(this);
        b->setFixedSize(20, 20);
        b->setToolTip(c.name().toUpper());
        b->setCheckable(true);
        b->setChecked(c.rgb() == current.rgb());
        b->setStyleSheet(QStringLiteral("QToolButton{background:%1;border:1px solid #777;} QToolButton:checked{border:2px solid black;}").arg(c.name()));
        connect(b, &QToolButton::clicked, this, [this, c] {
            Q_EMIT colorChosen(c);
            close();
        });
        grid->addWidget(b, i / 8, i % 8);
    }
}

void OVQuickColorEdit::popup(const QPoint &globalPos)
{
    move(globalPos);
    show();
}
