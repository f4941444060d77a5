#include "ui/kit/V3Slider.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QEvent>
#include <QPainter>
#include <QStyleOptionSlider>

#include <algorithm>

namespace {

// Room for the knob's shadow and the focus ring.
constexpr int margin = 3;

} // namespace

V3Slider::V3Slider(QWidget* parent)
    : QSlider(Qt::Horizontal, parent)
{
    setAttribute(Qt::WA_Hover);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize V3Slider::sizeHint() const
{
    return { 160, int(knobSize) + 2 * margin };
}

QSize V3Slider::minimumSizeHint() const
{
    return { int(knobSize) * 3, int(knobSize) + 2 * margin };
}

QRectF V3Slider::knobRect() const
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect handle = style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
    // The knob is drawn over the style's handle, kept inside the widget at the ends of the range.
    const qreal half = knobSize / 2;
    const qreal x = std::clamp(qreal(handle.center().x()) + 0.5, half + margin, width() - half - margin);
    return { x - half, height() / 2.0 - half, knobSize, knobSize };
}

void V3Slider::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) p.setOpacity(0.45);
    const QRectF knob = knobRect();
    const QRectF track(margin, height() / 2.0 - trackHeight / 2, width() - 2.0 * margin, trackHeight);
    const qreal radius = trackHeight / 2;
    p.setPen(Qt::NoPen);
    p.setBrush(V3::bgInset.resolve(a));
    p.drawRoundedRect(track, radius, radius);
    p.setPen(QPen(V3::lineSoft.resolve(a), 0.5));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(track, radius, radius);
    p.setPen(Qt::NoPen);
    p.setBrush(V3::accent.resolve(a));
    p.drawRoundedRect(QRectF(track.left(), track.top(), knob.center().x() - track.left(), trackHeight), radius, radius);

    KitPaint::softShadow(p, knob, knobSize / 2, QColor(0, 0, 0, underMouse() || isSliderDown() ? 90 : 60), 1.5, 0.5);
    p.setBrush(Qt::white);
    p.setPen(QPen(V3::line.resolve(a), 0.5));
    p.drawEllipse(knob);
    if (hasFocus()) {
        p.setBrush(Qt::NoBrush);
        p.setPen(QPen(V3::accent.resolve(a), 1.5));
        p.drawEllipse(knob.adjusted(-1.5, -1.5, 1.5, 1.5));
    }
}

bool V3Slider::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QSlider::event(event);
}
