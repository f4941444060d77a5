#pragma once

#include <QImage>
#include <QPointF>
#include <QRect>
#include <QRectF>

#include <functional>
#include <optional>
#include <vector>

class QPainter;

// What the area picker makes of a drag, and how it looks, without any window: pure functions of
// the two points of the drag, shared by the picker's windows and the tests.
namespace AreaPickerGeometry {

// A drag smaller than this either way cancels the pick: a click is no rectangle.
constexpr double minimumSide = 10;

// The rectangle between where the drag began and where it is now, in either direction.
QRectF selection(QPointF anchor, QPointF current);
// Grows outward to whole pixels.
QRectF integral(const QRectF& rect);
// The rectangle a finished drag gives in global display space, or none when it is too small.
// `anchor` and `current` are in the coordinates of the display's window (not clamped to it: a
// drag that runs off the display gives a rectangle reaching beyond it), `displayOrigin` is that
// display's top-left corner in global space.
std::optional<QRectF> pickedRect(QPointF anchor, QPointF current, QPointF displayOrigin);

// The displays that get a picker window of their own: each listed display but one that repeats an
// earlier one (a mirror) or holds another whole (a monitor spanning others), whose window would lie
// over theirs with a second hint and a second picture.
std::vector<QRect> pickerDisplays(const std::vector<QRect>& displays);

// Wraps a completion so that it runs once: the first result wins and later ones are dropped.
// `beforeCompletion` runs first (the picker's windows leave the screen before the caller hears).
template <typename T>
std::function<void(T)> firstResultWins(std::function<void(T)> completion, std::function<void()> beforeCompletion)
{
    auto finished = std::make_shared<bool>(false);
    return [finished, completion = std::move(completion), before = std::move(beforeCompletion)](T result) {
        if (*finished) return;
        *finished = true;
        if (before) before();
        if (completion) completion(std::move(result));
    };
}

// One display's picture while a pick runs: what the display showed, dimmed, with the selection
// undimmed and outlined and its size above it; while no drag runs on this display, the hint.
// `frozen` is the display's picture taken before the picker appeared (an X window can't be
// translucent without a compositor, so the dim is painted over a copy); with a null image the dim
// goes over what the painter's device holds already (a transparent surface over the live desktop,
// which the selection then shows as it is). The size is told in the display's pixels,
// `pixelRatio` of the painter's each.
void draw(QPainter& painter, const QRect& bounds, const QImage& frozen, std::optional<QPointF> anchor,
    std::optional<QPointF> current, double pixelRatio = 1);

// Where draw() paints anything but the dim while a drag runs: the outline and the size label.
// Between two moments of a drag, the picture changes only within the two moments' reaches.
QRectF dragReach(QPointF anchor, QPointF current, double pixelRatio = 1);

} // namespace AreaPickerGeometry
