#include "ui/kit/D1AmbientBackground.h"

#include "ui/kit/D1.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QRadialGradient>

#include <algorithm>

namespace {

// Each glow's centre as a fraction of the window and its reach as a fraction of its longer side:
// a broad one from the top left, a deep one from the bottom right and a small accent at the top
// right. The bottom-left corner stays the bare base colour.
struct Glow {
    const QColor* color;
    double x;
    double y;
    double reach;
};

const Glow glows[] = {
    { &D1::ambientGlow1, 0.18, 0.0, 0.55 },
    { &D1::ambientGlow2, 0.95, 1.0, 0.5 },
    { &D1::ambientGlowAccn, 0.82, 0.05, 0.3 },
};

} // namespace

D1AmbientBackground::D1AmbientBackground(QWidget* parent)
    : QWidget(parent)
{
    // Opaque: the widgets under it need not paint.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void D1AmbientBackground::paint(QPainter& p, const QRectF& r, const QColor& base)
{
    p.save();
    p.fillRect(r, base);
    p.setPen(Qt::NoPen);
    const qreal longer = std::max(r.width(), r.height());
    for (const Glow& glow : glows) {
        const QPointF centre(r.left() + r.width() * glow.x, r.top() + r.height() * glow.y);
        QRadialGradient gradient(centre, longer * glow.reach);
        QColor clear = *glow.color;
        clear.setAlpha(0);
        gradient.setColorAt(0, *glow.color);
        gradient.setColorAt(1, clear);
        p.setBrush(gradient);
        p.drawRect(r);
    }
    p.restore();
}

void D1AmbientBackground::paintEvent(QPaintEvent* event)
{
    QPainter p(this);
    p.setClipRegion(event->region());
    paint(p, rect(), V3::bg.resolve(this));
}

bool D1AmbientBackground::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QWidget::event(event);
}
