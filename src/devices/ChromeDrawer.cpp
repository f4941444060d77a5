#include "devices/ChromeDrawer.h"

#include "devices/ChromeStyles.h"

#include <QPainter>

void ChromeDrawer::draw(
    QPainter& painter, const QRectF& rect, CameraShape shape, CameraFrameStyle style, double timeSeconds)
{
    if (!(rect.width() > 0) || !(rect.height() > 0)) return;
    painter.save();
    // Turn y upward about the bubble's middle: the rectangle stays where it is, and its lower edge
    // becomes its smallest y, as in the recording's own coordinates.
    painter.translate(0, rect.top() + rect.bottom());
    painter.scale(1, -1);
    ChromeStyles::draw(painter, rect, shape, style, timeSeconds, ChromeStyles::Look::recording);
    painter.restore();
}
