#include "journal/FormatPnL.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

QString formatFixed(double value, int decimals)
{
    char buffer[400];
    std::snprintf(buffer, sizeof buffer, "%.*f", std::clamp(decimals, 0, 20), value);
    return QString::fromLatin1(buffer);
}

QString formatPnL(double value, PnLUnit unit, int decimals, const QLocale& locale)
{
    // Money reads in the user's own way: "1,234.50" in English, "1.234,50" in German. The C locale
    // (what a bare environment has) groups nothing, which keeps the plain "%.2f" text there.
    const QString number = locale.toString(std::fabs(value), 'f', std::clamp(decimals, 0, 20));
    // The sign is the value's, not the rounded text's: -0.001 with 2 decimals reads "-$0.00".
    const QString sign = value < 0 ? QStringLiteral("-") : QString();
    switch (unit) {
    case PnLUnit::dollars:
        return sign + QStringLiteral("$") + number;
    case PnLUnit::R:
        return sign + number + QStringLiteral("R");
    case PnLUnit::points:
        return sign + number + QStringLiteral(" pts");
    case PnLUnit::ticks:
        return sign + number + QStringLiteral(" ticks");
    }
    return sign + number;
}
