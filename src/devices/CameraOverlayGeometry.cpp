#include "devices/CameraOverlayGeometry.h"

#include <algorithm>
#include <limits>

QRectF cameraOverlayRect(QSizeF canvas, double positionX, double positionY, double sizeFrac, CameraShape shape)
{
    const double base = sizeFrac * std::min(canvas.width(), canvas.height());
    const double aspect = cameraAspect(shape);
    const double w = aspect >= 1 ? base * aspect : base;
    const double h = aspect >= 1 ? base : base / aspect;
    return QRectF(positionX * canvas.width() - w / 2, positionY * canvas.height() - h / 2, w, h);
}

double cameraCornerRadius(double base, CameraShape shape)
{
    return base * cameraCornerFraction(shape);
}

QPainterPath cameraBubblePath(const QRectF& rect, CameraShape shape)
{
    QPainterPath path;
    if (!(rect.width() > 0) || !(rect.height() > 0)) return path;
    const double radius = shape == CameraShape::circle
        ? std::numeric_limits<double>::infinity()
        : cameraCornerRadius(std::min(rect.width(), rect.height()), shape);
    // An ellipse is the rounded rectangle whose corners take the whole half of each side.
    const double rx = std::min(radius, rect.width() / 2);
    const double ry = std::min(radius, rect.height() / 2);
    const double l = rect.left(), t = rect.top(), r = rect.right(), b = rect.bottom();
    path.moveTo(l + rx, t);
    path.lineTo(r - rx, t);
    path.arcTo(QRectF(r - 2 * rx, t, 2 * rx, 2 * ry), 90, -90);
    path.lineTo(r, b - ry);
    path.arcTo(QRectF(r - 2 * rx, b - 2 * ry, 2 * rx, 2 * ry), 0, -90);
    path.lineTo(l + rx, b);
    path.arcTo(QRectF(l, b - 2 * ry, 2 * rx, 2 * ry), 270, -90);
    path.lineTo(l, t + ry);
    path.arcTo(QRectF(l, t, 2 * rx, 2 * ry), 180, -90);
    path.closeSubpath();
    return path;
}
