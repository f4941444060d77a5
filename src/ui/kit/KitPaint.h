#pragma once

#include "ui/kit/Appearance.h"
#include "ui/kit/D1.h"

#include <QColor>
#include <QFont>
#include <QRectF>

class QEvent;
class QPainter;

// Drawing helpers shared by the kit's controls.
namespace KitPaint {

// The application's font at a size in pixels (the sizes of the look are in points of 1/72 inch at
// 72 dpi, i.e. pixels).
QFont font(qreal pixelSize, QFont::Weight weight = QFont::Normal);

// The colour `t` of the way from `a` to `b` (opaque).
QColor mix(const QColor& a, const QColor& b, double t);

// Whether `event` may have changed the appearance, so that a painted control must redraw.
bool isAppearanceChange(const QEvent* event);

// The keyboard-focus ring: a 2-pixel line just inside `plate`.
void focusRing(QPainter& p, const QRectF& plate, qreal radius, const QColor& color);

// A soft shadow under a rounded rectangle, spreading `blur` pixels beyond it, moved by `dy`.
void softShadow(QPainter& p, const QRectF& rect, qreal radius, const QColor& color, qreal blur, qreal dy);

// A rounded plate filled with a vertical gradient, a shade darker while pressed and lighter while
// hovered.
void gradientPlate(QPainter& p, const QRectF& r, qreal radius, const TileColors& colors, bool pressed, bool hovered);

} // namespace KitPaint
