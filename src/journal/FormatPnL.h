#pragma once

#include "journal/PnLUnit.h"

#include <QString>

// The text of an amount, the only formatter of amounts: the magnitude in fixed notation with
// `decimals` decimals, a "-" for values below 0 and nothing otherwise (no "+", and minus zero has
// no sign), then the unit: "$" before the number, or "R", " pts", " ticks" after it.
// formatPnL(-12.5, dollars, 2) is "-$12.50"; formatPnL(3, R, 2) is "3.00R".
QString formatPnL(double value, PnLUnit unit, int decimals);

// printf-style "%.<decimals>f", the number format of every figure the journal shows.
QString formatFixed(double value, int decimals);
