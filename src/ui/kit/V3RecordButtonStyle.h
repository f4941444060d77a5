#pragma once

#include "ui/kit/V3ButtonState.h"

#include <QSizeF>

class QPainter;

// The small record button: the primary gradient, taller, with a record dot before the text; while
// live, the red of a running recording and a stop square.
class V3RecordButtonStyle {
public:
    static constexpr qreal height = 40;
    static constexpr qreal radius = 10;
    static constexpr qreal fontSize = 13;
    static constexpr qreal horizontalInset = 16;
    static constexpr qreal glyphSize = 10;
    static constexpr qreal glyphGap = 8;

    static QSizeF sizeHint(const V3ButtonState& state);
    static void paint(QPainter& p, const QRectF& r, const V3ButtonState& state);
};
