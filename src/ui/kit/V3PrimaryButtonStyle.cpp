#include "ui/kit/V3PrimaryButtonStyle.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/Srgb.h"

#include <QPainter>

TileColors V3PrimaryButtonStyle::gradient()
{
    return { Srgb::color(0.28, 0.58, 0.99), Srgb::color(0.15, 0.42, 0.95) };
}

QSizeF V3PrimaryButtonStyle::sizeHint(const V3ButtonState& state)
{
    const QSizeF content = V3ButtonContent::size(state, KitPaint::font(fontSize, QFont::DemiBold), symbolSize);
    return { content.width() + 2 * horizontalInset, height };
}

void V3PrimaryButtonStyle::paint(QPainter& p, const QRectF& r, const V3ButtonState& state)
{
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (!state.enabled) p.setOpacity(0.45);
    const TileColors colors = gradient();
    KitPaint::gradientPlate(p, r, radius, colors, state.pressed, state.hovered);
    V3ButtonContent::paint(p, r.adjusted(horizontalInset, 0, -horizontalInset, 0), state,
        KitPaint::font(fontSize, QFont::DemiBold), symbolSize, Qt::white);
    if (state.focused) KitPaint::focusRing(p, r, radius, QColor(255, 255, 255, 220));
    p.restore();
}
