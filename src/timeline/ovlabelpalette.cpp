#include "timeline/ovlabelpalette.h"

#include <QStringList>

const QList<QColor> &OVLabelPalette::colors()
{
    static const QList<QColor> palette = [] {
        const char *names[] = { "#FFFFFF", "#ADADAD", "#C8BCD0", "#EE1B24", "#F3662E", "#FAD309", "#FEF301", "#196DAD",
                                "#6EC1E9", "#20A7DF", "#F7B68C", "#F5851F", "#F8A51B", "#149555", "#A2D078", "#57BC56",
                                "#F6A4A6", "#9274B4", "#A0712B", "#B0489D", "#FFEDC5", "#F16894", "#A0DBE9", "#EAF3C4" };
        QList<QColor> list;
        for (const char *n : names)
            list.append(QColor(QLatin1String(n)));
        return list;
    }();
    return palette;
}
