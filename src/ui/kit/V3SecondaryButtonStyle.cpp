#include "ui/kit/V3SecondaryButtonStyle.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QPainter>

QSizeF V3SecondaryButtonStyle::sizeHint(const V3ButtonState& state)
{
    const QSizeF content = V3ButtonContent::size(state, KitPaint::font(fontSize, QFont::Medium), symbolSize);
    return { content.width() + 2 * horizontalInset, height };
}

void V3SecondaryButtonStyle::paint(QPainter& p, const QRectF& r, const V3ButtonState& state)
{
    const Appearance a = state.appearance;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (!state.enabled) p.setOpacity(0.45);
    if (state.pressed) {
        p.translate(r.center());
        p.scale(pressedScale, pressedScale);
        p.translate(-r.center());
    }
    const QColor plate
        = state.hovered ? KitPaint::mix(V3::bgElev.resolve(a), V3::line.resolve(a), 0.3) : V3::bgElev.resolve(a);
    const QRectF inner = r.adjusted(borderWidth / 2, borderWidth / 2, -borderWidth / 2, -borderWidth / 2);
    p.setPen(QPen(V3::line.resolve(a), borderWidth));
    p.setBrush(plate);
    p.drawRoundedRect(inner, radius, radius);
    V3ButtonContent::paint(p, r.adjusted(horizontalInset, 0, -horizontalInset, 0), state,
        KitPaint::font(fontSize, QFont::Medium), symbolSize, V3::fg.resolve(a));
    if (state.focused) KitPaint::focusRing(p, r, radius, V3::accent.resolve(a));
    p.restore();
}
