#include "ui/recorder/FormatElapsed.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

QString formatElapsed(double seconds)
{
    if (!(seconds > 0) || !std::isfinite(seconds)) seconds = 0;
    const auto whole = int64_t(std::floor(seconds));
    const int hundredths = std::clamp(int(std::trunc((seconds - double(whole)) * 100)), 0, 99);
    const auto two = [](int64_t value) { return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0')); };
    if (whole < 3600) return two(whole / 60) + QLatin1Char(':') + two(whole % 60) + QLatin1Char('.') + two(hundredths);
    return QString::number(whole / 3600) + QLatin1Char(':') + two(whole / 60 % 60) + QLatin1Char(':') + two(whole % 60);
}
