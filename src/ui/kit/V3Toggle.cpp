#include "ui/kit/V3Toggle.h"

#include "ui/kit/EnterPresses.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QPainter>
#include <QVariantAnimation>

namespace {

// Room for the hover growth and the focus ring.
constexpr int margin = 2;

} // namespace

V3Toggle::V3Toggle(QWidget* parent)
    : QAbstractButton(parent)
    , knob(new QVariantAnimation(this))
{
    setCheckable(true);
    setAttribute(Qt::WA_Hover);
    setFocusPolicy(Qt::TabFocus);
    new EnterPresses(this);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    knob->setDuration(150);
    knob->setEasingCurve(QEasingCurve::InOutQuad);
    connect(knob, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        knobAt = value.toDouble();
        update();
    });
    connect(this, &QAbstractButton::toggled, this, [this](bool on) {
        knob->stop();
        const double target = on ? 1.0 : 0.0;
        // Slide only where someone sees it; otherwise stand at the end at once.
        if (isVisible()) {
            knob->setStartValue(knobAt);
            knob->setEndValue(target);
            knob->start();
        } else {
            knobAt = target;
        }
        update();
    });
}

QRectF V3Toggle::trackRect() const
{
    const QPointF c = QRectF(rect()).center();
    return { c.x() - trackWidth / 2, c.y() - trackHeight / 2, trackWidth, trackHeight };
}

QSize V3Toggle::sizeHint() const
{
    return { int(trackWidth) + 2 * margin, int(trackHeight) + 2 * margin };
}

bool V3Toggle::hitButton(const QPoint&) const
{
    return true;
}

void V3Toggle::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    const double at = knobAt;
    const QRectF track = trackRect();
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) p.setOpacity(0.45);
    if (underMouse()) {
        p.translate(track.center());
        p.scale(hoverScale, hoverScale);
        p.translate(-track.center());
    }
    const qreal radius = trackHeight / 2;
    p.setPen(Qt::NoPen);
    p.setBrush(KitPaint::mix(V3::line.resolve(a), V3::accent.resolve(a), at));
    p.drawRoundedRect(track, radius, radius);

    const qreal travel = trackWidth - knobSize - 2 * knobInset;
    const QRectF knobRect(track.left() + knobInset + travel * at, track.top() + knobInset, knobSize, knobSize);
    KitPaint::softShadow(p, knobRect, knobSize / 2, QColor(0, 0, 0, 60), 1.5, 0.5);
    p.setBrush(Qt::white);
    p.drawEllipse(knobRect);
    if (hasFocus()) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(V3::accent.resolve(a), 1.5));
        p.drawRoundedRect(track.adjusted(-1.5, -1.5, 1.5, 1.5), radius + 1.5, radius + 1.5);
    }
}

bool V3Toggle::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QAbstractButton::event(event);
}
