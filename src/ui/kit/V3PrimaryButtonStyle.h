#pragma once

#include "ui/kit/D1.h"
#include "ui/kit/V3ButtonState.h"

#include <QSizeF>

class QPainter;

// The filled call to action: a blue gradient, white text.
class V3PrimaryButtonStyle {
public:
    static constexpr qreal height = 34;
    static constexpr qreal radius = 8;
    static constexpr qreal fontSize = 13;
    static constexpr qreal horizontalInset = 14;
    static constexpr qreal symbolSize = 14;

    // The fill, top to bottom; the small record button shares it.
    static TileColors gradient();

    static QSizeF sizeHint(const V3ButtonState& state);
    static void paint(QPainter& p, const QRectF& r, const V3ButtonState& state);
};
