#pragma once

#include <QDateTime>

// Journal dates are plain doubles: seconds since 2001-01-01 00:00:00 UTC, the form the sidecar
// stores. A double keeps whatever precision a sidecar was written with, so a date read from a file
// is written back bit for bit; QDateTime would round it to milliseconds.
namespace ReferenceDate {

// 2001-01-01 00:00:00 UTC as Unix time.
constexpr double unixOffset = 978307200.0;

double now();
double fromDateTime(const QDateTime& dateTime);
// Rounds down to the millisecond, so that a time just before midnight never lands on the next day.
QDateTime toDateTime(double seconds);

} // namespace ReferenceDate
