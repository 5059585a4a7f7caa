#include "settings/ovoverlaysettings.h"

namespace {
QFont defaultFont()
{
    QFont font(QStringLiteral("Arial"), 20);
    font.setItalic(false);
    return font;
}
} // namespace

OVOverlaySettings::OVOverlaySettings(QObject *parent) : OVSettingsGroup(QStringLiteral("OverlaySettings"), parent)
{
    addKey(QStringLiteral("color"), QColor(255, 255, 255, 255));
    addKey(QStringLiteral("font"), defaultFont());
}

QColor OVOverlaySettings::color() const
{
    const QColor c = value(QStringLiteral("color")).value<QColor>();
    return c.isValid() ? c : QColor(255, 255, 255, 255);
}

void OVOverlaySettings::setColor(const QColor &color) { setValue(QStringLiteral("color"), color); }

QFont OVOverlaySettings::font() const
{
    const QVariant v = value(QStringLiteral("font"));
    return v.canConvert<QFont>() ? v.value<QFont>() : defaultFont();
}

void OVOverlaySettings::setFont(const QFont &font) { setValue(QStringLiteral("font"), font); }
