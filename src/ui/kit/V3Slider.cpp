#include "ui/kit/V3Slider.h"

#include "ui/kit/KitPaint.h"
#include "ui/kit/V3.h"

#include <QPainter>
#include <QStyle>

V3Slider::V3Slider(QWidget* parent)
    : QSlider(Qt::Horizontal, parent)
{
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_Hover);
}

QSize V3Slider::sizeHint() const
{
    return { 180, int(knobSize) + 6 };
}

bool V3Slider::event(QEvent* event)
{
    if (KitPaint::isAppearanceChange(event)) update();
    return QSlider::event(event);
}

void V3Slider::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) p.setOpacity(0.55);
    const qreal half = knobSize / 2 + 1;
    const qreal y = height() / 2.0;
    const QRectF track(half, y - trackHeight / 2, width() - 2 * half, trackHeight);
    // Where QSlider puts the value, so that a click lands where it is drawn.
    const int span = std::max(1, maximum() - minimum());
    const qreal at = track.left() + track.width() * double(sliderPosition() - minimum()) / span;

    p.setPen(Qt::NoPen);
    p.setBrush(V3::bgInset.resolve(a));
    p.drawRoundedRect(track, trackHeight / 2, trackHeight / 2);
    p.setBrush(V3::accent.resolve(a));
    p.drawRoundedRect(
        QRectF(track.left(), track.top(), at - track.left(), trackHeight), trackHeight / 2, trackHeight / 2);

    const QRectF knob(at - knobSize / 2, y - knobSize / 2, knobSize, knobSize);
    KitPaint::softShadow(p, knob, knobSize / 2, QColor(0, 0, 0, 70), 3, 1);
    p.setPen(QPen(V3::line.resolve(a), 0.5));
    p.setBrush(underMouse() || isSliderDown() ? QColor(245, 247, 252) : QColor(Qt::white));
    p.drawEllipse(knob);
    if (hasFocus()) KitPaint::focusRing(p, knob.adjusted(-3, -3, 3, 3), knobSize / 2 + 3, V3::accent.resolve(a));
}
