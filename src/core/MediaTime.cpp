#include "core/MediaTime.h"

#include <cmath>
#include <ctime>
#include <limits>
#include <numeric>

namespace {

// 128-bit intermediates make cross-timescale products exact.
__extension__ typedef __int128 Int128;

int rank(const MediaTime& t)
{
    if (!t.isValid()) return 0;
    if (t.flags & MediaTime::NegativeInfinity) return 1;
    if (t.flags & MediaTime::PositiveInfinity) return 3;
    if (t.flags & MediaTime::Indefinite) return 4;
    return 2;
}

// Brings two numeric times onto one timescale: the least common multiple when it fits in 32 bits
// (exact), otherwise the larger of the two (rounded, as the platform does).
MediaTime combine(const MediaTime& a, const MediaTime& b, int sign)
{
    if (!a.isNumeric() || !b.isNumeric()) return MediaTime::invalid();
    const int64_t lcm = std::lcm<int64_t, int64_t>(a.timescale, b.timescale);
    const int32_t ts
        = lcm <= std::numeric_limits<int32_t>::max() ? static_cast<int32_t>(lcm) : std::max(a.timescale, b.timescale);
    const MediaTime ca = a.convertScale(ts);
    const MediaTime cb = b.convertScale(ts);
    Int128 v = static_cast<Int128>(ca.value) + sign * static_cast<Int128>(cb.value);
    if (v > std::numeric_limits<int64_t>::max()) return MediaTime::positiveInfinity();
    if (v < std::numeric_limits<int64_t>::min()) return MediaTime::negativeInfinity();
    return MediaTime(static_cast<int64_t>(v), ts);
}

} // namespace

MediaTime MediaTime::positiveInfinity()
{
    MediaTime t(0, 1);
    t.flags |= PositiveInfinity;
    return t;
}

MediaTime MediaTime::negativeInfinity()
{
    MediaTime t(0, 1);
    t.flags |= NegativeInfinity;
    return t;
}

MediaTime MediaTime::fromSeconds(double seconds, int32_t timescale)
{
    if (timescale <= 0 || std::isnan(seconds)) return invalid();
    if (std::isinf(seconds)) return seconds > 0 ? positiveInfinity() : negativeInfinity();
    return MediaTime(static_cast<int64_t>(std::llround(seconds * timescale)), timescale);
}

double MediaTime::seconds() const
{
    if (!isValid() || (flags & Indefinite)) return std::numeric_limits<double>::quiet_NaN();
    if (flags & PositiveInfinity) return std::numeric_limits<double>::infinity();
    if (flags & NegativeInfinity) return -std::numeric_limits<double>::infinity();
    return static_cast<double>(value) / timescale;
}

MediaTime MediaTime::convertScale(int32_t newTimescale) const
{
    if (!isNumeric() || newTimescale <= 0) return *this;
    if (newTimescale == timescale) return *this;
    const Int128 num = static_cast<Int128>(value) * newTimescale;
    Int128 q = num / timescale;
    const Int128 r = num % timescale;
    // round half away from zero
    if (2 * (r < 0 ? -r : r) >= timescale) q += (num < 0 ? -1 : 1);
    return MediaTime(static_cast<int64_t>(q), newTimescale);
}

MediaTime operator-(const MediaTime& a, const MediaTime& b)
{
    return combine(a, b, -1);
}
MediaTime operator+(const MediaTime& a, const MediaTime& b)
{
    return combine(a, b, +1);
}

int MediaTime::compare(const MediaTime& a, const MediaTime& b)
{
    const int ra = rank(a), rb = rank(b);
    if (ra != rb || ra != 2) return ra < rb ? -1 : (ra > rb ? 1 : 0);
    const Int128 lhs = static_cast<Int128>(a.value) * b.timescale;
    const Int128 rhs = static_cast<Int128>(b.value) * a.timescale;
    return lhs < rhs ? -1 : (lhs > rhs ? 1 : 0);
}

int64_t monotonicNanoseconds()
{
    timespec ts {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}
