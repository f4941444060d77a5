#pragma once

#include <cstdint>
#include <optional>

// A rational presentation time: value / timescale seconds. Times of the capture clock are
// never re-based; comparison and subtraction are exact across different timescales.
struct MediaTime {
    enum Flag : uint32_t {
        Valid = 1u << 0,
        PositiveInfinity = 1u << 2,
        NegativeInfinity = 1u << 3,
        Indefinite = 1u << 4,
    };

    int64_t value = 0;
    int32_t timescale = 0;
    uint32_t flags = 0;

    constexpr MediaTime() = default;
    constexpr MediaTime(int64_t v, int32_t ts)
        : value(v)
        , timescale(ts)
        , flags(ts > 0 ? uint32_t(Valid) : 0u)
    {
    }

    static constexpr MediaTime invalid() { return MediaTime(); }
    static constexpr MediaTime zero() { return MediaTime(0, 1); }
    static MediaTime positiveInfinity();
    static MediaTime negativeInfinity();
    // Rounds to the nearest tick of `timescale`.
    static MediaTime fromSeconds(double seconds, int32_t timescale);
    // The capture clock: CLOCK_MONOTONIC nanoseconds.
    static constexpr MediaTime fromNanoseconds(int64_t ns) { return MediaTime(ns, 1'000'000'000); }

    bool isValid() const { return (flags & Valid) != 0 && timescale > 0; }
    // Valid and finite: arithmetic on it means something.
    bool isNumeric() const { return isValid() && (flags & (PositiveInfinity | NegativeInfinity | Indefinite)) == 0; }
    double seconds() const;
    // Expressed in another timescale, rounded to the nearest tick.
    MediaTime convertScale(int32_t newTimescale) const;

    // Invalid or non-numeric operands give an invalid result, like the platform's time arithmetic.
    friend MediaTime operator-(const MediaTime& a, const MediaTime& b);
    friend MediaTime operator+(const MediaTime& a, const MediaTime& b);

    // Total order of the platform: invalid sorts below everything, then -inf, numbers, +inf.
    // -1, 0 or 1. (Spelled out rather than with <=>: moc cannot parse <compare>.)
    static int compare(const MediaTime& a, const MediaTime& b);
    friend bool operator==(const MediaTime& a, const MediaTime& b) { return compare(a, b) == 0; }
    friend bool operator!=(const MediaTime& a, const MediaTime& b) { return compare(a, b) != 0; }
    friend bool operator<(const MediaTime& a, const MediaTime& b) { return compare(a, b) < 0; }
    friend bool operator>(const MediaTime& a, const MediaTime& b) { return compare(a, b) > 0; }
    friend bool operator<=(const MediaTime& a, const MediaTime& b) { return compare(a, b) <= 0; }
    friend bool operator>=(const MediaTime& a, const MediaTime& b) { return compare(a, b) >= 0; }
};

// Monotonic clock reading in nanoseconds, the clock every capture timestamp uses.
int64_t monotonicNanoseconds();
