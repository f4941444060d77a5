#include "ui/kit/V3GhostButtonStyle.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QPainter>

QSizeF V3GhostButtonStyle::sizeHint(const V3ButtonState& state)
{
    const QSizeF content = V3ButtonContent::size(state, KitPaint::font(fontSize), symbolSize);
    return { content.width() + 2 * horizontalInset, height };
}

void V3GhostButtonStyle::paint(QPainter& p, const QRectF& r, const V3ButtonState& state)
{
    const Appearance a = state.appearance;
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (!state.enabled) p.setOpacity(0.45);
    p.setPen(Qt::NoPen);
    p.setBrush(state.pressed ? V3::lineSoft.resolve(a) : V3::bgInset.resolve(a));
    p.drawRoundedRect(r, radius, radius);
    const QColor text = state.hovered || state.pressed ? V3::fg.resolve(a) : V3::fgMute.resolve(a);
    V3ButtonContent::paint(
        p, r.adjusted(horizontalInset, 0, -horizontalInset, 0), state, KitPaint::font(fontSize), symbolSize, text);
    if (state.focused) KitPaint::focusRing(p, r, radius, V3::accent.resolve(a));
    p.restore();
}
