#include "ui/kit/D1NavTile.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"

#include <QLinearGradient>
#include <QPainter>

void D1NavTile::paint(
    QPainter& p, const QRectF& r, const QString& symbol, const TileColors& colors, double iconScale, bool glow)
{
    const qreal size = std::min(r.width(), r.height());
    if (size <= 0) return;
    const QRectF tile(r.center().x() - size / 2, r.center().y() - size / 2, size, size);
    const qreal radius = cornerFraction * size;

    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    if (glow) {
        QColor shadow = colors.to;
        shadow.setAlphaF(0.55f);
        KitPaint::softShadow(p, tile, radius, shadow, size * 0.3, size * 0.08);
    }
    QLinearGradient fill(tile.topLeft(), tile.bottomLeft());
    fill.setColorAt(0, colors.from);
    fill.setColorAt(1, colors.to);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(tile, radius, radius);
    const qreal icon = size * iconScale;
    Symbols::paint(
        p, QRectF(tile.center().x() - icon / 2, tile.center().y() - icon / 2, icon, icon), symbol, Qt::white);
    p.restore();
}
