#pragma once

#include <QColor>

// A vertical gradient, top colour first.
struct TileColors {
    QColor from;
    QColor to;
};

// The ambient look of the window: its backdrop glows, the hero card and the navigation tiles.
namespace D1 {

extern const QColor ambientGlow1;
extern const QColor ambientGlow2;
extern const QColor ambientGlowAccn;
extern const QColor heroCardFill;
extern const QColor heroCardStroke;
extern const QColor sidebarStroke;

extern const TileColors tileRec;
extern const TileColors tileBlue;
extern const TileColors tilePurple;
extern const TileColors tilePink;
extern const TileColors tileTeal;
extern const TileColors tileGray;
extern const TileColors tileGold;
extern const TileColors tileGreen;

} // namespace D1
