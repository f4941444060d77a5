#include "monitor/AreaPickerDrag.h"

#include "monitor/AreaPickerGeometry.h"

AreaPickerDrag::AreaPickerDrag(
    Finish finish, std::function<void()> redraw, QPointF displayOrigin, std::function<QPointF(QPointF)> toPixels)
    : finish(std::move(finish))
    , redraw(std::move(redraw))
    , origin(displayOrigin)
    , toPixels(std::move(toPixels))
{
}

void AreaPickerDrag::press(Qt::MouseButton button, QPointF at)
{
    if (button == Qt::RightButton) return cancel();
    if (button != Qt::LeftButton) return;
    start = now = at;
    if (redraw) redraw();
}

void AreaPickerDrag::move(QPointF at)
{
    if (!start) return;
    now = at;
    if (redraw) redraw();
}

void AreaPickerDrag::release(Qt::MouseButton button)
{
    if (button != Qt::LeftButton) return;
    if (!start || !now) return cancel();
    const auto pixels = [this](QPointF p) { return toPixels ? toPixels(p) : p; };
    const auto picked = AreaPickerGeometry::pickedRect(pixels(*start), pixels(*now), origin);
    start.reset();
    now.reset();
    if (redraw) redraw();
    // Too small a drag (a click) cancels the whole pick.
    finish(picked);
}

void AreaPickerDrag::cancel()
{
    finish(std::nullopt);
}
