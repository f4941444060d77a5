#pragma once

#include <QColor>

// Colours from sRGB fractions, computed at compile time so that the named colours are constant-
// initialised and safe to read from any other static initialiser. The 16-bit channels round as
// QColor::fromRgbF does.
namespace Srgb {

constexpr ushort channel(double fraction)
{
    return ushort(fraction * 65535.0 + 0.5);
}

constexpr QColor color(double r, double g, double b, double opacity = 1.0)
{
    return QColor(QColor::Rgb, channel(opacity), channel(r), channel(g), channel(b));
}

} // namespace Srgb
