#include "capture/CaptureSource.h"

#include <QHash>

#include <cmath>

namespace {

// Whole numbers by truncation towards zero, so 10.4 and 10.2 name the same rectangle.
QString whole(double value)
{
    return QString::number(static_cast<long long>(std::trunc(value)));
}

} // namespace

CaptureSource CaptureSource::display(const CaptureDisplay& display)
{
    CaptureSource source;
    source.sourceKind = Kind::display;
    source.displayPayload = display;
    source.sourceId = QStringLiteral("display-") + QString::number(display.displayID);
    return source;
}

CaptureSource CaptureSource::window(const CaptureWindow& window)
{
    CaptureSource source;
    source.sourceKind = Kind::window;
    source.windowPayload = window;
    source.sourceId = QStringLiteral("window-") + QString::number(window.windowID);
    return source;
}

CaptureSource CaptureSource::region(
    const CaptureDisplay& display, const QRectF& localPointRect, int pixelWidth, int pixelHeight)
{
    CaptureSource source;
    source.sourceKind = Kind::region;
    source.displayPayload = display;
    source.regionRect = localPointRect;
    source.regionPixelWidth = pixelWidth;
    source.regionPixelHeight = pixelHeight;
    const QRectF r = localPointRect.normalized();
    source.sourceId = QStringLiteral("region-%1-%2-%3-%4x%5")
                          .arg(display.displayID)
                          .arg(whole(r.x()), whole(r.y()), whole(r.width()), whole(r.height()));
    return source;
}

size_t qHash(const CaptureSource& source, size_t seed)
{
    return qHash(source.id(), seed);
}
