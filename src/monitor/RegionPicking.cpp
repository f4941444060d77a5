#include "monitor/RegionPicking.h"

#include <algorithm>
#include <cmath>

namespace RegionPicking {

namespace {

// Half-open, like the platform's point-in-rectangle test: a middle exactly on the edge between
// two side-by-side screens belongs to the one on the right (or below).
bool holds(const QRectF& frame, const QPointF& point)
{
    return point.x() >= frame.left() && point.x() < frame.left() + frame.width() && point.y() >= frame.top()
        && point.y() < frame.top() + frame.height();
}

} // namespace

PickResult pickedRegion(
    const QRectF& globalRect, const ScreenLayout& layout, std::span<const uint32_t> availableDisplayIDs)
{
    const QPointF middle = globalRect.center();
    const auto screen = std::find_if(
        layout.screens.begin(), layout.screens.end(), [&](const auto& s) { return holds(s.frame, middle); });
    if (screen == layout.screens.end()) return PickFailure::unknownDisplay;
    if (std::find(availableDisplayIDs.begin(), availableDisplayIDs.end(), screen->displayID)
        == availableDisplayIDs.end())
        return PickFailure::displayUnavailable;
    PickedRegion region;
    region.displayID = screen->displayID;
    region.localRect = globalRect.translated(-screen->frame.topLeft());
    region.pixelWidth = evenPixelLength(region.localRect.width(), screen->scale);
    region.pixelHeight = evenPixelLength(region.localRect.height(), screen->scale);
    return region;
}

int evenPixelLength(double points, double scale)
{
    // std::round rounds half away from zero. The encoder needs even sizes of at least 2.
    const long rounded = std::lround(points * scale);
    if (rounded < 2) return 2;
    return static_cast<int>(rounded & ~1L);
}

QString failureMessage(PickFailure failure)
{
    switch (failure) {
    case PickFailure::unknownDisplay:
        return QStringLiteral("Couldn't identify the display for that region.");
    case PickFailure::displayUnavailable:
        return QStringLiteral("That display isn't available for capture.");
    }
    return {};
}

QString selectedToast(const PickedRegion& region)
{
    return QStringLiteral("Region selected · %1×%2").arg(region.pixelWidth).arg(region.pixelHeight);
}

} // namespace RegionPicking
