#include "ui/kit/V3Chip.h"

#include "ui/kit/KitAccessibility.h"
#include "ui/kit/KitPaint.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace {

constexpr qreal dotGap = 5;

QFont chipFont()
{
    return KitPaint::font(V3Chip::fontSize, QFont::DemiBold);
}

} // namespace

V3Chip::V3Chip(const QString& text, QColor tint, QColor background, bool pulseDot, QWidget* parent)
    : V3Chip(text, DynamicColor(tint), DynamicColor(background), pulseDot, parent)
{
}

V3Chip::V3Chip(
    const QString& text, const DynamicColor& tint, const DynamicColor& background, bool pulseDot, QWidget* parent)
    : QWidget(parent)
    , tint(tint)
    , background(background)
    , pulseDot(pulseDot)
    , pulse([this] { update(); })
{
    KitAccessibility::install();
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setText(text);
}

void V3Chip::setText(const QString& text)
{
    if (text == label && !accessibleName().isEmpty()) return;
    label = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

void V3Chip::setColors(const DynamicColor& newTint, const DynamicColor& newBackground)
{
    tint = newTint;
    background = newBackground;
    update();
}

void V3Chip::setPulseDot(bool on)
{
    if (pulseDot == on) return;
    pulseDot = on;
    updatePulse();
    updateGeometry();
}

QSize V3Chip::sizeHint() const
{
    const QFontMetricsF metrics(chipFont());
    qreal width = metrics.horizontalAdvance(label) + 2 * horizontalInset;
    if (pulseDot) width += dotSize + dotGap;
    const qreal height = metrics.height() + 2 * verticalInset;
    return { int(std::ceil(width)), int(std::ceil(height)) };
}

void V3Chip::paintEvent(QPaintEvent*)
{
    const Appearance a = appearanceOf(this);
    const QColor ink = tint.resolve(a);
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = rect();
    p.setPen(Qt::NoPen);
    p.setBrush(background.resolve(a));
    p.drawRoundedRect(r, r.height() / 2, r.height() / 2);

    qreal x = horizontalInset;
    if (pulseDot) {
        QColor dot = ink;
        // Breathes between full and a third of the tint.
        dot.setAlphaF(float(dot.alphaF() * (1.0 - 0.65 * pulse.value())));
        p.setBrush(dot);
        p.drawEllipse(QRectF(x, r.center().y() - dotSize / 2, dotSize, dotSize));
        x += dotSize + dotGap;
    }
    p.setFont(chipFont());
    p.setPen(ink);
    p.drawText(QRectF(x, 0, r.width() - x, r.height()), Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, label);
}

bool V3Chip::event(QEvent* event)
{
    switch (event->type()) {
    case QEvent::Show:
        onScreen = true;
        updatePulse();
        break;
    case QEvent::Hide:
        onScreen = false;
        updatePulse();
        break;
    default:
        if (KitPaint::isAppearanceChange(event)) update();
        break;
    }
    return QWidget::event(event);
}

void V3Chip::updatePulse()
{
    if (onScreen && pulseDot)
        pulse.start();
    else
        pulse.stop();
    update();
}
