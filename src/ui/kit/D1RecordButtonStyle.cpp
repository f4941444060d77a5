#include "ui/kit/D1RecordButtonStyle.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/Srgb.h"
#include "ui/kit/V3.h"

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QRadialGradient>

#include <cmath>

namespace {

// At the usual diameter of 84 the glyph is 22 wide, the stop square's corners 5 and the text 11.
constexpr qreal referenceDiameter = 84;
constexpr qreal glyphAt84 = 22;
constexpr qreal stopRadiusAt84 = 5;
constexpr qreal textAt84 = 11;
constexpr qreal glowReach = 0.45; // beyond the circle, as a fraction of the radius

QColor withAlpha(QColor c, double alpha)
{
    c.setAlphaF(float(alpha));
    return c;
}

} // namespace

TileColors D1RecordButtonStyle::idleGradient()
{
    return { Srgb::color(0.32, 0.62, 1.0), Srgb::color(0.16, 0.42, 0.95) };
}

TileColors D1RecordButtonStyle::liveGradient()
{
    return { Srgb::color(0.95, 0.3, 0.25), Srgb::color(0.78, 0.16, 0.16) };
}

qreal D1RecordButtonStyle::margin(qreal diameter)
{
    return std::ceil(diameter / 2 * glowReach) + 3;
}

void D1RecordButtonStyle::paint(QPainter& p, const QRectF& r, const D1RecordButtonState& state)
{
    const qreal d = std::min(state.diameter, std::min(r.width(), r.height()));
    const qreal scale = d / referenceDiameter;
    const QPointF c = r.center();
    const qreal radius = d / 2;

    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (!state.enabled) p.setOpacity(0.45);

    const double* glow = state.live ? liveGlow : idleGlow;
    const double glowAlpha = glow[0] + (glow[1] - glow[0]) * state.pulse;
    const QColor glowColor = (state.live ? V3::rec : V3::accent).resolve(state.appearance);
    const qreal reach = radius * (1 + glowReach * (0.75 + 0.25 * state.pulse));
    QRadialGradient halo(c, reach);
    halo.setColorAt(radius / reach * 0.8, withAlpha(glowColor, glowAlpha));
    halo.setColorAt(1, withAlpha(glowColor, 0));
    p.setPen(Qt::NoPen);
    p.setBrush(halo);
    p.drawEllipse(c, reach, reach);

    if (state.pressed) {
        p.translate(c);
        p.scale(0.96, 0.96);
        p.translate(-c);
    }
    const TileColors colors = state.live ? liveGradient() : idleGradient();
    const int lift = state.hovered && !state.pressed ? 106 : 100;
    QLinearGradient fill(c.x(), c.y() - radius, c.x(), c.y() + radius);
    fill.setColorAt(0, colors.from.lighter(lift));
    fill.setColorAt(1, colors.to.lighter(lift));
    p.setBrush(fill);
    p.drawEllipse(c, radius, radius);

    // The glyph over the text, the pair centred in the circle.
    const qreal glyph = glyphAt84 * scale;
    const QFont font = KitPaint::font(textAt84 * scale, QFont::DemiBold);
    const QFontMetricsF metrics(font);
    const qreal gap = 4 * scale;
    const qreal textHeight = state.text.isEmpty() ? 0.0 : gap + metrics.height();
    const qreal top = c.y() - (glyph + textHeight) / 2;
    const QRectF glyphRect(c.x() - glyph / 2, top, glyph, glyph);
    p.setBrush(Qt::white);
    if (state.live)
        p.drawRoundedRect(glyphRect, stopRadiusAt84 * scale, stopRadiusAt84 * scale);
    else
        p.drawEllipse(glyphRect);
    if (!state.text.isEmpty()) {
        p.setFont(font);
        p.setPen(Qt::white);
        p.drawText(QRectF(c.x() - radius, glyphRect.bottom() + gap, d, metrics.height()),
            Qt::AlignHCenter | Qt::AlignTop | Qt::TextSingleLine, state.text);
    }

    if (state.focused) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(V3::accent.resolve(state.appearance), 2));
        p.drawEllipse(c, radius + 2.5, radius + 2.5);
    }
    p.restore();
}
