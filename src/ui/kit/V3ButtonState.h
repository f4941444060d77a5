#pragma once

#include "ui/kit/Appearance.h"

#include <QColor>
#include <QFont>
#include <QRectF>
#include <QString>

class QPainter;

// What a button style needs to draw one state of a button.
struct V3ButtonState {
    QString text;
    QString symbol; // empty for none
    Appearance appearance = Appearance::dark;
    bool enabled = true;
    bool pressed = false;
    bool hovered = false;
    bool focused = false; // keyboard focus: the ring shows
    bool live = false; // the record styles only: a recording runs
};

// The label of a button: the symbol (if any) then the text, centred in `r`, in one colour.
namespace V3ButtonContent {

constexpr qreal symbolGap = 6;

QSizeF size(const V3ButtonState& state, const QFont& font, qreal symbolSize);
void paint(
    QPainter& p, const QRectF& r, const V3ButtonState& state, const QFont& font, qreal symbolSize, const QColor& color);

} // namespace V3ButtonContent
