#include "journal/ReferenceDate.h"

#include <cmath>

namespace ReferenceDate {

double now()
{
    return fromDateTime(QDateTime::currentDateTimeUtc());
}

double fromDateTime(const QDateTime& dateTime)
{
    return static_cast<double>(dateTime.toMSecsSinceEpoch()) / 1000.0 - unixOffset;
}

QDateTime toDateTime(double seconds)
{
    const double ms = std::floor((seconds + unixOffset) * 1000.0);
    // A hostile sidecar may hold any number; beyond a few hundred thousand years there is no date.
    if (!std::isfinite(ms) || std::fabs(ms) > 8.64e15) return {};
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(ms), Qt::LocalTime);
}

} // namespace ReferenceDate
