#pragma once

#include "support/DrawnTextClip.h"

#include <QRectF>
#include <QSize>
#include <QString>

#include <array>

// The P&L figures of the reading corpus (bench/ocr) as one clip draws them: every way of writing
// an amount, a row a figure, a column a size, on a 1920x1080 ground. The tests read single figures
// off the same clips: what the encoder makes of a figure depends on everything else it had to
// spend its bits on, so a figure drawn alone is not the same picture.
namespace FigureGrid {

struct Figure {
    const char* text;
    double value; // signed; 0 is a break-even
};

inline constexpr std::array<Figure, 10> figures { {
    { "-7.25", -7.25 },
    { "\u22127.25", -7.25 },
    { "(7.25)", -7.25 },
    { "+7.25", 7.25 },
    { "$1,234.50", 1234.5 },
    { "-$1,234.50", -1234.5 },
    { "-\u20AC45.10", -45.1 },
    { "\u00A312,345.00", 12345 },
    { "(\u00A5980)", -980 },
    { "0.00", 0 },
} };

inline constexpr std::array<int, 6> sizes { 12, 14, 16, 20, 28, 40 };

inline const QSize clipSize(1920, 1080);

// The watched area around the figure of a row and column, as a user draws it: a little room on
// every side.
QRectF areaOf(int row, int column);

// The clip of one font and one theme, half a second long. `font` is a path.
bool make(const QString& path, const QString& font, const QString& background, const QString& ink);

} // namespace FigureGrid
