#pragma once

#include "journal/PnLUnit.h"

#include <QLocale>
#include <QString>

// From this magnitude on an amount is written in the compact form of formatCompact: a double no
// longer holds cents there, and the fixed form of 1e308 would be 309 digits of noise.
constexpr double compactFrom = 1e15;

// The text of an amount, the only formatter of amounts: the magnitude in fixed notation with
// `decimals` decimals, grouped in thousands and with the decimal mark of `locale` (the user's), a
// "-" for values below 0 and nothing otherwise (no "+", and minus zero has no sign), then the unit:
// "$" before the number, or "R", " pts", " ticks" after it. formatPnL(-12.5, dollars, 2) is
// "-$12.50"; formatPnL(1234.5, R, 2) is "1,234.50R" in English and "1.234,50R" in German. From
// compactFrom on the magnitude is formatCompact's: formatPnL(1.2e308, dollars, 2) is "$1.2e308".
QString formatPnL(double value, PnLUnit unit, int decimals, const QLocale& locale = QLocale());

// Three significant digits with an exponent where one is needed: "1.2e308", "2.5e15", "inf".
QString formatCompact(double magnitude);

// printf-style "%.<decimals>f", the number format of every figure the journal shows; from
// compactFrom on (and for infinity) the sign and formatCompact instead.
QString formatFixed(double value, int decimals);
