#include "ui/ArmedStylePreview.h"

#include "monitor/ArmedFrameDrawing.h"

#include <QPainter>
#include <QPainterPath>

ArmedStylePreview::ArmedStylePreview(QWidget* parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    ticker.setInterval(1000 / 60);
    connect(&ticker, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

void ArmedStylePreview::setStyle(AreaOverlayStyle value)
{
    if (value == chosen) return;
    chosen = value;
    // A new style starts from its beginning, as the frame on the screen does.
    clock.restart();
    update();
}

QRectF ArmedStylePreview::sampleRect() const
{
    // Room around it for the frame's gap, its glow, and the pill above.
    const double side = ArmedFrameDrawing::gap + ArmedFrameDrawing::glowReach;
    return QRectF(rect()).adjusted(side, side + 22, -side, -side);
}

void ArmedStylePreview::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing, true);
    // A dark stand-in for the watched chart, so the cyan frame reads as it does on a screen.
    const QRectF sample = sampleRect();
    QPainterPath card;
    card.addRoundedRect(QRectF(rect()), 10, 10);
    painter.fillPath(card, QColor::fromRgbF(0.05f, 0.06f, 0.09f, 1.0f));
    painter.fillRect(sample, QColor::fromRgbF(0.09f, 0.11f, 0.16f, 1.0f));
    const double t = clock.isValid() ? clock.nsecsElapsed() / 1e9 : 0.0;
    ArmedFrameDrawing::draw(painter, sample, chosen, t);
}

void ArmedStylePreview::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    clock.start();
    ticker.start();
}

void ArmedStylePreview::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    ticker.stop();
}
