#include "journal/LocalCalendar.h"

#include "journal/ReferenceDate.h"

#include <QDateTime>

#include <cmath>
#include <ctime>

namespace {

struct LocalTime {
    QDate date;
    int secondsSinceMidnight;
};

std::optional<LocalTime> localTime(long long unixSeconds)
{
    const auto t = static_cast<time_t>(unixSeconds);
    struct tm parts {};
    if (!localtime_r(&t, &parts)) return std::nullopt;
    return LocalTime { QDate(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday),
        parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec };
}

std::optional<double> qtStartOfDay(const QDate& day)
{
    const QDateTime start = day.startOfDay(Qt::LocalTime);
    if (!start.isValid()) return std::nullopt;
    return ReferenceDate::fromDateTime(start);
}

} // namespace

LocalCalendar::LocalCalendar()
{
    // localtime_r does not look at TZ again by itself; this makes a changed zone count.
    tzset();
}

std::optional<double> LocalCalendar::firstInstant(long long near, int secondsSinceMidnight, const QDate& day) const
{
    // Wall-clock midnight, if no clock change lies between it and `near`: then it is local midnight
    // of `day` and the second before it belongs to the day before. Otherwise ask Qt, which searches.
    const long long candidate = near - secondsSinceMidnight;
    const auto at = localTime(candidate);
    const auto before = localTime(candidate - 1);
    if (at && before && at->date == day && at->secondsSinceMidnight == 0 && before->date < day) {
        return static_cast<double>(candidate) - ReferenceDate::unixOffset;
    }
    return qtStartOfDay(day);
}

LocalCalendar::Day LocalCalendar::dayOf(double seconds)
{
    if (known && seconds >= cached.start && seconds < end) return cached;
    known = false;
    const double unix = std::floor(seconds + ReferenceDate::unixOffset);
    // Beyond a few hundred thousand years there is no calendar day.
    if (!std::isfinite(unix) || std::fabs(unix) > 8.64e12) return { QDate(), seconds };
    const auto t = static_cast<long long>(unix);
    const auto local = localTime(t);
    if (!local || !local->date.isValid()) return { QDate(), seconds };

    const auto start = firstInstant(t, local->secondsSinceMidnight, local->date);
    // The next day's midnight by the wall clock, checked the same way.
    const long long nextNear = t + (86400 - local->secondsSinceMidnight);
    const auto next = localTime(nextNear);
    const auto nextStart = next && next->date == local->date.addDays(1)
        ? firstInstant(nextNear, next->secondsSinceMidnight, next->date)
        : qtStartOfDay(local->date.addDays(1));
    if (!start || !nextStart) return { local->date, seconds };

    cached = { local->date, *start };
    end = *nextStart;
    known = true;
    return cached;
}
