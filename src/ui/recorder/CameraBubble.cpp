#include "ui/recorder/CameraBubble.h"

#include "app/AppSettings.h"
#include "devices/CameraFrameChrome.h"
#include "devices/CameraOverlayGeometry.h"
#include "ui/kit/KitPaint.h"
#include "ui/kit/Symbols.h"

#include <QDateTime>
#include <QEvent>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace {

// Room around the bubble for what the chrome draws outside it: a polaroid's band, shadows, glows
// and a pulse's ripple.
double chromeMargin(const QRectF& bubble)
{
    return 0.25 * std::min(bubble.width(), bubble.height()) + 48;
}

double wallClockSeconds()
{
    return QDateTime::currentMSecsSinceEpoch() / 1000.0;
}

} // namespace

CameraBubble::CameraBubble(AppSettings* appSettings, QWidget* picture)
    : QWidget(picture)
    , settings(appSettings)
{
    setObjectName(QStringLiteral("cameraBubble"));
    setAccessibleName(QStringLiteral("Camera overlay"));
    setToolTip(QStringLiteral("Drag to reposition · Change shape, size + frame in Settings → Camera & Mic"));
    setCursor(Qt::OpenHandCursor);
    ticker.setInterval(1000 / 30);
    connect(&ticker, &QTimer::timeout, this, qOverload<>(&QWidget::update));
    picture->installEventFilter(this);
    for (auto changed :
        { &AppSettings::cameraEnabledChanged, &AppSettings::cameraShapeChanged, &AppSettings::cameraSizeChanged,
            &AppSettings::cameraPositionXChanged, &AppSettings::cameraPositionYChanged,
            &AppSettings::cameraFrameEnabledChanged, &AppSettings::cameraFrameStyleChanged })
        connect(settings, changed, this, &CameraBubble::place);
    place();
}

void CameraBubble::setFrame(const QImage& image)
{
    frame = image;
    update();
}

void CameraBubble::setCameraOn(bool on)
{
    if (on == cameraOn) return;
    cameraOn = on;
    update();
}

CameraBubble::State CameraBubble::state() const
{
    if (!cameraOn) return State::off;
    return frame.isNull() ? State::starting : State::picture;
}

QRectF CameraBubble::bubbleRect() const
{
    const QWidget* picture = parentWidget();
    return cameraOverlayRect(QSizeF(picture->size()), settings->cameraPositionX(), settings->cameraPositionY(),
        settings->cameraSize(), settings->cameraShape());
}

void CameraBubble::place()
{
    const QRectF bubble = bubbleRect();
    const double margin = chromeMargin(bubble);
    setGeometry(bubble.adjusted(-margin, -margin, margin, margin).toAlignedRect());
    setVisible(settings->cameraEnabled() && !bubble.isEmpty());
    refreshTicker();
    update();
}

void CameraBubble::refreshTicker()
{
    const bool animated = settings->cameraFrameEnabled() && CameraFrameChrome::isAnimated(settings->cameraFrameStyle());
    if (animated && isVisible())
        ticker.start();
    else
        ticker.stop();
}

bool CameraBubble::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize) place();
    return QWidget::eventFilter(watched, event);
}

void CameraBubble::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refreshTicker();
}

void CameraBubble::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    ticker.stop();
}

void CameraBubble::mousePressEvent(QMouseEvent* event)
{
    const QRectF bubble = bubbleRect().translated(-QPointF(pos()));
    if (event->button() != Qt::LeftButton || !bubble.contains(event->position())) {
        event->ignore();
        return;
    }
    dragStart = QPointF(settings->cameraPositionX(), settings->cameraPositionY());
    pressedAt = event->globalPosition();
    setCursor(Qt::ClosedHandCursor);
}

void CameraBubble::mouseMoveEvent(QMouseEvent* event)
{
    if (!dragStart) return;
    // Each move counts from where the drag began: past an edge the bubble stays pinned there and
    // leaves it only once the pointer has come back as far.
    const QPointF moved = event->globalPosition() - pressedAt;
    const QSizeF canvas(parentWidget()->size());
    const double w = std::max(canvas.width(), 1.0);
    const double h = std::max(canvas.height(), 1.0);
    const QRectF bubble = bubbleRect();
    const double hx = std::min(bubble.width() * 0.5 / w, 0.5);
    const double hy = std::min(bubble.height() * 0.5 / h, 0.5);
    settings->setCameraPositionX(std::clamp(dragStart->x() + moved.x() / w, hx, 1 - hx));
    settings->setCameraPositionY(std::clamp(dragStart->y() + moved.y() / h, hy, 1 - hy));
}

void CameraBubble::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return;
    dragStart.reset();
    setCursor(Qt::OpenHandCursor);
}

void CameraBubble::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF bubble = bubbleRect().translated(-QPointF(pos()));
    const CameraShape shape = settings->cameraShape();
    const QPainterPath outline = cameraBubblePath(bubble, shape);
    if (state() != State::picture) {
        paintPlaceholder(p, bubble);
    } else {
        // The picture fills the bubble, cut at the sides or top and bottom, never stretched: as
        // the recorder fills it.
        p.save();
        p.setClipPath(outline);
        const QSizeF filled = QSizeF(frame.size()).scaled(bubble.size(), Qt::KeepAspectRatioByExpanding);
        const QRectF target(bubble.center().x() - filled.width() / 2, bubble.center().y() - filled.height() / 2,
            filled.width(), filled.height());
        p.drawImage(target, frame);
        p.restore();
    }
    if (settings->cameraFrameEnabled())
        CameraFrameChrome::draw(p, bubble, shape, settings->cameraFrameStyle(), wallClockSeconds());
}

void CameraBubble::paintPlaceholder(QPainter& p, const QRectF& r)
{
    const bool off = state() == State::off;
    QLinearGradient fill(r.topLeft(), r.bottomRight());
    fill.setColorAt(0, off ? QColor(58, 62, 74) : QColor(46, 92, 160));
    fill.setColorAt(1, off ? QColor(30, 32, 40) : QColor(24, 36, 72));
    p.fillPath(cameraBubblePath(r, settings->cameraShape()), fill);
    const QColor ink(255, 255, 255, 215);
    const double icon = std::clamp(std::min(r.width(), r.height()) * 0.22, 12.0, 28.0);
    const QPointF centre = r.center();
    Symbols::paint(p, QRectF(centre.x() - icon / 2, centre.y() - icon * 0.9, icon, icon),
        off ? QStringLiteral("video.slash") : QStringLiteral("video"), ink);
    p.setFont(KitPaint::font(std::clamp(std::min(r.width(), r.height()) * 0.09, 9.0, 12.0), QFont::Medium));
    p.setPen(ink);
    p.drawText(QRectF(r.left(), centre.y() + icon * 0.25, r.width(), icon), Qt::AlignHCenter | Qt::AlignTop,
        off ? QStringLiteral("Camera off") : QStringLiteral("Starting camera…"));
}
