#include "recorder/CameraCompositor.h"

#include "devices/CameraOverlayGeometry.h"
#include "devices/ChromeDrawer.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace {

// How far the chrome may draw outside the overlay's rectangle (shadows, glows, rings that grow),
// as a fraction of the overlay's shorter side, plus a few pixels for the anti-aliased edge.
constexpr double chromeReach = 0.35;
constexpr int edgePixels = 4;

bool isFinite(double v)
{
    return std::isfinite(v);
}

} // namespace

QRectF CameraCompositor::overlayRect(QSizeF canvas, const CameraComposite& c)
{
    return cameraOverlayRect(canvas, c.positionX, c.positionY, c.sizeFrac, c.shape);
}

QRect CameraCompositor::touchedRect(QSize canvas, const CameraComposite& c)
{
    const QRectF rect = overlayRect(QSizeF(canvas), c);
    if (!isFinite(rect.x()) || !isFinite(rect.y()) || !isFinite(rect.width()) || !isFinite(rect.height())
        || rect.width() <= 0 || rect.height() <= 0)
        return {};
    const double reach = (c.frameStyle ? chromeReach * std::min(rect.width(), rect.height()) : 0) + edgePixels;
    const QRectF grown = rect.adjusted(-reach, -reach, reach, reach);
    // Far outside any picture: nothing to do (and nothing that overflows an int).
    if (grown.right() < 0 || grown.bottom() < 0 || grown.left() > canvas.width() || grown.top() > canvas.height())
        return {};
    const int left = int(std::floor(std::max(0.0, grown.left()) / 2)) * 2;
    const int top = int(std::floor(std::max(0.0, grown.top()) / 2)) * 2;
    const int right = std::min(int(std::ceil(grown.right() / 2)) * 2, canvas.width() & ~1);
    const int bottom = std::min(int(std::ceil(grown.bottom() / 2)) * 2, canvas.height() & ~1);
    if (right <= left || bottom <= top) return {};
    return QRect(left, top, right - left, bottom - top);
}

std::optional<CameraCompositor::Overlay> CameraCompositor::composite(
    const QImage& screen, const CameraComposite& c, const MediaTime& pts)
{
    const QImage& camera = c.image;
    if (screen.isNull() || camera.isNull() || camera.width() < 1 || camera.height() < 1) return std::nullopt;
    const QRect touched = touchedRect(screen.size(), c);
    if (touched.isEmpty()) return std::nullopt;
    const QRectF rect = overlayRect(QSizeF(screen.size()), c);

    QImage patch = screen.copy(touched);
    if (patch.format() != QImage::Format_RGB32) patch = patch.convertToFormat(QImage::Format_RGB32);
    if (patch.isNull()) return std::nullopt;

    // Fill: scaled by the larger ratio, centred, cut by the shape. Scaled once, smoothly, to the
    // size it is drawn at, so that the fill below is a plain copy through the mask.
    const double scale = std::max(rect.width() / camera.width(), rect.height() / camera.height());
    const QSize scaledSize(
        std::max(1, int(std::ceil(camera.width() * scale))), std::max(1, int(std::ceil(camera.height() * scale))));
    const QImage scaled = camera.scaled(scaledSize, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (scaled.isNull()) return std::nullopt;
    const QPointF origin = rect.center() - QPointF(scaledSize.width() / 2.0, scaledSize.height() / 2.0);

    const QPainterPath shape = cameraBubblePath(rect, c.shape);

    QPainter painter(&patch);
    if (!painter.isActive()) return std::nullopt;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(-touched.topLeft());
    QBrush fill(scaled);
    fill.setTransform(QTransform::fromTranslate(std::round(origin.x()), std::round(origin.y())));
    painter.fillPath(shape, fill);

    // The chrome's animation runs on the frame's own clock.
    if (c.frameStyle) ChromeDrawer::draw(painter, rect, c.shape, *c.frameStyle, pts.isNumeric() ? pts.seconds() : 0);
    painter.end();
    return Overlay { std::move(patch), touched.topLeft() };
}

QImage CameraCompositor::burnIn(const QImage& screen, const Overlay& overlay)
{
    QImage out = screen.convertToFormat(QImage::Format_RGB32);
    QPainter painter(&out);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(overlay.at, overlay.image);
    return out;
}
