#include "ui/kit/V3RecordButtonStyle.h"

#include "ui/kit/D1RecordButtonStyle.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3PrimaryButtonStyle.h"

#include <QFontMetricsF>
#include <QPainter>

QSizeF V3RecordButtonStyle::sizeHint(const V3ButtonState& state)
{
    const QFontMetricsF metrics(KitPaint::font(fontSize, QFont::DemiBold));
    const qreal text = state.text.isEmpty() ? 0.0 : glyphGap + metrics.horizontalAdvance(state.text);
    return { 2 * horizontalInset + glyphSize + text, height };
}

void V3RecordButtonStyle::paint(QPainter& p, const QRectF& r, const V3ButtonState& state)
{
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (!state.enabled) p.setOpacity(0.45);
    const TileColors colors = state.live ? D1RecordButtonStyle::liveGradient() : V3PrimaryButtonStyle::gradient();
    KitPaint::gradientPlate(p, r, radius, colors, state.pressed, state.hovered);

    const QFont font = KitPaint::font(fontSize, QFont::DemiBold);
    const QFontMetricsF metrics(font);
    const qreal textWidth = state.text.isEmpty() ? 0.0 : glyphGap + metrics.horizontalAdvance(state.text);
    const qreal x = r.center().x() - (glyphSize + textWidth) / 2;
    const QRectF glyph(x, r.center().y() - glyphSize / 2, glyphSize, glyphSize);
    p.setBrush(Qt::white);
    if (state.live)
        p.drawRoundedRect(glyph, 2.5, 2.5);
    else
        p.drawEllipse(glyph);
    if (!state.text.isEmpty()) {
        p.setFont(font);
        p.setPen(Qt::white);
        p.drawText(QRectF(glyph.right() + glyphGap, r.top(), r.right() - glyph.right(), r.height()),
            Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, state.text);
    }
    if (state.focused) KitPaint::focusRing(p, r, radius, QColor(255, 255, 255, 220));
    p.restore();
}
