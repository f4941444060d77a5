#include "core/ScreenLayout.h"

const ScreenLayout::Screen* ScreenLayout::screenForDisplay(uint32_t id) const
{
    for (const Screen& s : screens)
        if (s.displayID == id) return &s;
    return nullptr;
}

const ScreenLayout::Screen* ScreenLayout::screenContaining(const QPointF& point) const
{
    for (const Screen& s : screens)
        if (s.frame.contains(point)) return &s;
    return nullptr;
}

QRectF ScreenLayout::globalToScreenSpace(const QRectF& rect) const
{
    const double mainHeight = screens.empty() ? 0.0 : screens.front().frame.height();
    return QRectF(rect.x(), mainHeight - rect.y() - rect.height(), rect.width(), rect.height());
}

QRectF ScreenLayout::screenSpaceToGlobal(const QRectF& rect) const
{
    // The flip is its own inverse.
    return globalToScreenSpace(rect);
}
