#pragma once

#include "ui/kit/D1.h"

#include <QRectF>
#include <QString>

class QPainter;

// A rounded square icon tile: a gradient of the pair, corner radius 0.28 of its side, the symbol in
// white at `iconScale` of the side. With `glow`, a soft shadow of its colour spills up to about a
// third of the side beyond `r`: leave that room around it.
class D1NavTile {
public:
    static constexpr qreal cornerFraction = 0.28;

    // The tile is the largest square centred in `r`.
    static void paint(QPainter& p, const QRectF& r, const QString& symbol, const TileColors& colors,
        double iconScale = 0.55, bool glow = false);
};
