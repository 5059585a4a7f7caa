#pragma once

#include "settings/ovsettingsgroup.h"

#include <QColor>
#include <QFont>

// Colour and font of text drawn over the video.
class OVOverlaySettings : public OVSettingsGroup
{
    Q_OBJECT
public:
    explicit OVOverlaySettings(QObject *parent = nullptr);

    QColor color() const;
    void setColor(const QColor &color);
    QFont font() const;
    void setFont(const QFont &font);
};
