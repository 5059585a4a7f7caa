#pragma once

#include <QColor>
#include <QList>

// The colours offered when a label is edited on the timeline, in the order they are shown.
class OVLabelPalette
{
public:
    static const QList<QColor> &colors();
};
