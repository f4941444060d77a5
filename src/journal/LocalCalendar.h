#pragma once

#include <QDate>

#include <optional>

// The user's calendar days, in the system time zone as the C library knows it (TZ or
// /etc/localtime), read once when the calendar is made: a calendar made after the zone changed
// groups by the new zone.
//
// Converting an instant to local time costs a few hundred nanoseconds with the C library and tens
// of microseconds through Qt's date-time classes, and a journal holds many trades a day. So the
// bounds of the last day looked up are kept, and a time inside them needs no conversion at all.
// Bounds are the day's true first instants, so days of 23 and 25 hours are what they are.
//
// Not thread-safe: one calendar per thread.
class LocalCalendar {
public:
    struct Day {
        QDate date;
        double start; // the day's first instant, seconds since 2001-01-01 00:00:00 UTC
    };

    LocalCalendar();

    // The local day of an instant given as seconds since 2001-01-01 UTC. An instant too far from
    // now to have a calendar day gives an invalid date.
    Day dayOf(double seconds);

private:
    std::optional<double> firstInstant(long long near, int secondsSinceMidnight, const QDate& day) const;

    bool known = false;
    Day cached {};
    double end = 0;
};
