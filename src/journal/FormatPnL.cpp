#include "journal/FormatPnL.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

QString formatFixed(double value, int decimals)
{
    if (!(std::fabs(value) < compactFrom))
        return (value < 0 ? QStringLiteral("-") : QString()) + formatCompact(std::fabs(value));
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", std::clamp(decimals, 0, 20), value);
    return QString::fromLatin1(buffer);
}

QString formatCompact(double magnitude)
{
    if (!std::isfinite(magnitude)) return std::isnan(magnitude) ? QStringLiteral("nan") : QStringLiteral("inf");
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.3g", magnitude);
    // "1.2e+308" reads as "1.2e308": no plus, no leading zeros in the exponent.
    QString text = QString::fromLatin1(buffer);
    const qsizetype e = text.indexOf(u'e');
    if (e < 0) return text;
    QString exponent = text.mid(e + 1);
    const bool negative = exponent.startsWith(u'-');
    if (negative || exponent.startsWith(u'+')) exponent.remove(0, 1);
    while (exponent.size() > 1 && exponent.startsWith(u'0'))
        exponent.remove(0, 1);
    return text.left(e + 1) + (negative ? QStringLiteral("-") : QString()) + exponent;
}

QString formatPnL(double value, PnLUnit unit, int decimals, const QLocale& locale)
{
    // Money reads in the user's own way: "1,234.50" in English, "1.234,50" in German. The C locale
    // (what a bare environment has) groups nothing, which keeps the plain "%.2f" text there.
    const double magnitude = std::fabs(value);
    const QString number = magnitude < compactFrom ? locale.toString(magnitude, 'f', std::clamp(decimals, 0, 20))
                                                   : formatCompact(magnitude);
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
