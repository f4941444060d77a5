#pragma once

#include "journal/PnLUnit.h"

#include <QLocale>
#include <QString>

// The text of an amount, the only formatter of amounts: the magnitude in fixed notation with
// `decimals` decimals, grouped in thousands and with the decimal mark of `locale` (the user's), a
// "-" for values below 0 and nothing otherwise (no "+", and minus zero has no sign), then the unit:
// "$" before the number, or "R", " pts", " ticks" after it. formatPnL(-12.5, dollars, 2) is
// "-$12.50"; formatPnL(1234.5, R, 2) is "1,234.50R" in English and "1.234,50R" in German.
QString formatPnL(double value, PnLUnit unit, int decimals, const QLocale& locale = QLocale());

// printf-style "%.<decimals>f", the number format of every figure the journal shows.
QString formatFixed(double value, int decimals);
