#pragma once

#include "ui/kit/V3ButtonState.h"

#include <QSizeF>

class QPainter;

// A quiet plate with a hairline border; it shrinks a little while pressed.
class V3SecondaryButtonStyle {
public:
    static constexpr qreal height = 34;
    static constexpr qreal radius = 8;
    static constexpr qreal borderWidth = 0.5;
    static constexpr qreal fontSize = 13;
    static constexpr qreal horizontalInset = 14;
    static constexpr qreal symbolSize = 14;
    static constexpr qreal pressedScale = 0.97;

    static QSizeF sizeHint(const V3ButtonState& state);
    static void paint(QPainter& p, const QRectF& r, const V3ButtonState& state);
};
