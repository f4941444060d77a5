#include "ui/kit/KitPaint.h"

#include <QApplication>
#include <QEvent>
#include <QLinearGradient>
#include <QPainter>

#include <algorithm>
#include <cmath>

namespace KitPaint {

QFont font(qreal pixelSize, QFont::Weight weight)
{
    QFont f = QApplication::font();
    f.setPixelSize(std::max(1, int(std::lround(pixelSize))));
    f.setWeight(weight);
    return f;
}

QColor mix(const QColor& a, const QColor& b, double t)
{
    auto at = [t](float x, float y) { return float(x + (y - x) * t); };
    return QColor::fromRgbF(at(a.redF(), b.redF()), at(a.greenF(), b.greenF()), at(a.blueF(), b.blueF()));
}

bool isAppearanceChange(const QEvent* event)
{
    switch (event->type()) {
    case QEvent::PaletteChange:
    case QEvent::ApplicationPaletteChange:
    case QEvent::ThemeChange:
    case QEvent::StyleChange:
        return true;
    default:
        return false;
    }
}

void focusRing(QPainter& p, const QRectF& plate, qreal radius, const QColor& color)
{
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setBrush(Qt::NoBrush);
    p.setPen(QPen(color, 2.0));
    const QRectF ring = plate.adjusted(1, 1, -1, -1);
    p.drawRoundedRect(ring, std::max(0.0, radius - 1), std::max(0.0, radius - 1));
    p.restore();
}

void softShadow(QPainter& p, const QRectF& rect, qreal radius, const QColor& color, qreal blur, qreal dy)
{
    // Rings of falling opacity stand in for a Gaussian blur: cheap, and soft enough at these sizes.
    const int steps = std::max(1, int(std::ceil(blur)));
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    const QRectF base = rect.translated(0, dy);
    for (int i = steps; i >= 1; --i) {
        const qreal spread = blur * i / steps;
        const qreal fade = 1.0 - qreal(i - 1) / steps;
        QColor c = color;
        c.setAlphaF(float(color.alphaF() * fade * fade * 2.0 / steps));
        p.setBrush(c);
        p.drawRoundedRect(base.adjusted(-spread, -spread, spread, spread), radius + spread, radius + spread);
    }
    p.restore();
}

void gradientPlate(QPainter& p, const QRectF& r, qreal radius, const TileColors& colors, bool pressed, bool hovered)
{
    const int shade = pressed ? 112 : 100;
    const int lift = hovered && !pressed ? 108 : 100;
    QLinearGradient fill(r.topLeft(), r.bottomLeft());
    fill.setColorAt(0, colors.from.darker(shade).lighter(lift));
    fill.setColorAt(1, colors.to.darker(shade).lighter(lift));
    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(r, radius, radius);
    p.restore();
}

} // namespace KitPaint
