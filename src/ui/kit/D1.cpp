#include "ui/kit/D1.h"

#include "ui/kit/Srgb.h"

namespace {

using Srgb::color;

constexpr TileColors tile(double r0, double g0, double b0, double r1, double g1, double b1)
{
    return { color(r0, g0, b0), color(r1, g1, b1) };
}

} // namespace

namespace D1 {

constinit const QColor ambientGlow1 = color(0.18, 0.3, 0.62, 0.55);
constinit const QColor ambientGlow2 = color(0.09, 0.18, 0.43, 0.55);
constinit const QColor ambientGlowAccn = color(0.255, 0.545, 0.98, 0.45);
constinit const QColor heroCardFill = color(0.082, 0.098, 0.158, 0.65);
constinit const QColor heroCardStroke = color(1.0, 1.0, 1.0, 0.08);
constinit const QColor sidebarStroke = color(1.0, 1.0, 1.0, 0.06);

constinit const TileColors tileRec = tile(1.0, 0.34, 0.3, 0.86, 0.18, 0.18);
constinit const TileColors tileBlue = tile(0.36, 0.62, 1.0, 0.18, 0.42, 0.95);
constinit const TileColors tilePurple = tile(0.62, 0.42, 1.0, 0.45, 0.24, 0.95);
constinit const TileColors tilePink = tile(1.0, 0.42, 0.78, 0.92, 0.24, 0.62);
constinit const TileColors tileTeal = tile(0.32, 0.82, 0.86, 0.18, 0.62, 0.74);
constinit const TileColors tileGray = tile(0.66, 0.7, 0.78, 0.45, 0.5, 0.58);
constinit const TileColors tileGold = tile(1.0, 0.82, 0.34, 0.94, 0.65, 0.18);
constinit const TileColors tileGreen = tile(0.42, 0.84, 0.5, 0.22, 0.66, 0.34);

} // namespace D1
