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
    // Kept as text ("#AARRGGBB", QFont::toString()) rather than as serialised variants: the file is
    // then readable, and a damaged one cannot feed a binary decoder.
    addKey(QStringLiteral("color"), QColor(255, 255, 255, 255).name(QColor::HexArgb));
    addKey(QStringLiteral("font"), defaultFont().toString());
}

QColor OVOverlaySettings::color() const
{
    const QColor c = QColor::fromString(value(QStringLiteral("color")).toString());
    return c.isValid() ? c : QColor(255, 255, 255, 255);
}

void OVOverlaySettings::setColor(const QColor &color)
{
    setValue(QStringLiteral("color"), color.name(QColor::HexArgb));
}

QFont OVOverlaySettings::font() const
{
    QFont font;
    return font.fromString(value(QStringLiteral("font")).toString()) ? font : defaultFont();
}

void OVOverlaySettings::setFont(const QFont &font) { setValue(QStringLiteral("font"), font.toString()); }
