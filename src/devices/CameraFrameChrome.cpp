#include "devices/CameraFrameChrome.h"

#include "devices/ChromeStyles.h"

void CameraFrameChrome::draw(
    QPainter& painter, const QRectF& bounds, CameraShape shape, CameraFrameStyle style, double timeSeconds)
{
    ChromeStyles::draw(painter, bounds, shape, style, timeSeconds, ChromeStyles::Look::live);
}

bool CameraFrameChrome::isAnimated(CameraFrameStyle style)
{
    switch (style) {
    case CameraFrameStyle::soft:
    case CameraFrameStyle::polaroid:
    case CameraFrameStyle::beveled:
    case CameraFrameStyle::edge:
        return false;
    default:
        return true;
    }
}

const char* CameraFrameChrome::caption(CameraFrameStyle style)
{
    return isAnimated(style) ? "Animation runs while armed." : "Static — no per-frame work.";
}
