#pragma once

#include <QString>

// The one formatter of times shown to the user: "[-]hh:mm:ss" followed by a fraction of
// `fractionDigits` digits. Rounding happens before the split so 59.9996 s never shows as "00:00:60".
class OVTimeFormat
{
public:
    static QString format(double seconds, int fractionDigits = 3);

    // Reads what format() writes (also "mm:ss[.f]" and plain seconds); false on anything else.
    static bool parse(const QString &text, double *seconds);
};
