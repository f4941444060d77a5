#include "ui/kit/AppLogoMarkLite.h"

#include "ui/kit/D1.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

void AppLogoMarkLite::paint(QPainter& p, const QRectF& r)
{
    const qreal s = std::min(r.width(), r.height());
    if (s <= 0) return;
    const QRectF tile(r.center().x() - s / 2, r.center().y() - s / 2, s, s);
    const QPointF c = tile.center();

    p.save();
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient fill(tile.topLeft(), tile.bottomLeft());
    fill.setColorAt(0, D1::tileBlue.from);
    fill.setColorAt(1, D1::tileBlue.to);
    p.setPen(Qt::NoPen);
    p.setBrush(fill);
    p.drawRoundedRect(tile, 0.28 * s, 0.28 * s);

    // The rewind arrow: a ring open at the upper left, its head at the top pointing left, so that
    // it runs counter-clockwise.
    const qreal ring = 0.3 * s;
    const qreal stroke = std::max(1.0, 0.085 * s);
    p.setPen(QPen(Qt::white, stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(c.x() - ring, c.y() - ring, 2 * ring, 2 * ring), 90 * 16, -300 * 16);
    const QPointF tip(c.x(), c.y() - ring);
    const qreal head = 0.13 * s;
    QPainterPath arrow;
    arrow.moveTo(tip + QPointF(head * 0.8, -head * 0.8));
    arrow.lineTo(tip);
    arrow.lineTo(tip + QPointF(head * 0.8, head * 0.8));
    p.drawPath(arrow);

    // The record dot at the hub.
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    const qreal hub = 0.17 * s;
    p.drawEllipse(c, hub, hub);
    p.setBrush(D1::tileRec.from);
    p.drawEllipse(c, hub * 0.72, hub * 0.72);
    p.restore();
}
