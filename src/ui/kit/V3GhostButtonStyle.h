#pragma once

#include "ui/kit/V3ButtonState.h"

#include <QSizeF>

class QPainter;

// The least of the buttons: muted text on an inset plate.
class V3GhostButtonStyle {
public:
    static constexpr qreal height = 30;
    static constexpr qreal radius = 6;
    static constexpr qreal fontSize = 13;
    static constexpr qreal horizontalInset = 10;
    static constexpr qreal symbolSize = 14;

    static QSizeF sizeHint(const V3ButtonState& state);
    static void paint(QPainter& p, const QRectF& r, const V3ButtonState& state);
};
