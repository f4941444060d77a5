#pragma once

#include "core/ScreenLayout.h"

#include <QRectF>
#include <QString>

#include <cstdint>
#include <span>
#include <variant>

// What a rectangle drawn with the area picker means as a capture source: a region of the display
// that holds its middle, in that display's own coordinates, with an even size in pixels. Pure
// functions; the controller shows the texts and restarts the stream.
namespace RegionPicking {

struct PickedRegion {
    uint32_t displayID = 0;
    // Relative to the display's top-left corner, points. May reach beyond the display.
    QRectF localRect;
    int pixelWidth = 0;
    int pixelHeight = 0;
};

enum class PickFailure {
    // No screen holds the middle of the rectangle.
    unknownDisplay,
    // The screen is there but the capture backend doesn't offer its display.
    displayUnavailable,
};

using PickResult = std::variant<PickedRegion, PickFailure>;

// `globalRect` in global display space; `availableDisplayIDs` the displays that can be captured.
PickResult pickedRegion(
    const QRectF& globalRect, const ScreenLayout& layout, std::span<const uint32_t> availableDisplayIDs);

// Points to an even pixel count: scaled, rounded half away from zero, the lowest bit removed, and
// never under 2.
int evenPixelLength(double points, double scale);

// "Couldn't identify the display for that region." / "That display isn't available for capture."
QString failureMessage(PickFailure failure);
// "Region selected · 202×102"
QString selectedToast(const PickedRegion& region);

} // namespace RegionPicking
