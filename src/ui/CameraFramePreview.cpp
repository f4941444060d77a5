#include "ui/CameraFramePreview.h"

#include "devices/CameraFrameChrome.h"
#include "devices/CameraOverlayGeometry.h"
#include "ui/kit/Symbols.h"

#include <QDateTime>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

CameraFramePreview::CameraFramePreview(QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("cameraFramePreview"));
    ticker.setInterval(1000 / 30);
    connect(&ticker, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

void CameraFramePreview::setStyle(CameraFrameStyle value)
{
    chosen = value;
    refreshTicker();
    update();
}

void CameraFramePreview::setShape(CameraShape value)
{
    shape = value;
    update();
}

QRectF CameraFramePreview::sampleRect() const
{
    // As high as leaves room for the widest chrome around it; a rectangle bubble is wide.
    const double side = std::max(20.0, height() - 44.0);
    const double wide = side * cameraAspect(shape);
    const QPointF centre = QRectF(rect()).center();
    return QRectF(centre.x() - wide / 2, centre.y() - side / 2, wide, side);
}

void CameraFramePreview::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF sample = sampleRect();
    QPainterPath card;
    card.addRoundedRect(QRectF(rect()), 10, 10);
    p.fillPath(card, QColor::fromRgbF(0.05f, 0.06f, 0.09f, 1.0f));
    QLinearGradient skin(sample.topLeft(), sample.bottomRight());
    skin.setColorAt(0, QColor(92, 120, 178));
    skin.setColorAt(1, QColor(46, 58, 96));
    p.fillPath(cameraBubblePath(sample, shape), skin);
    const double face = std::min(sample.width(), sample.height()) * 0.62;
    Symbols::paint(p, QRectF(sample.center().x() - face / 2, sample.center().y() - face / 2, face, face),
        QStringLiteral("person.crop.circle.fill"), QColor(255, 255, 255, 200));
    CameraFrameChrome::draw(p, sample, shape, chosen, QDateTime::currentMSecsSinceEpoch() / 1000.0);
}

void CameraFramePreview::refreshTicker()
{
    if (isVisible() && CameraFrameChrome::isAnimated(chosen))
        ticker.start();
    else
        ticker.stop();
}

void CameraFramePreview::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refreshTicker();
}

void CameraFramePreview::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    ticker.stop();
}
