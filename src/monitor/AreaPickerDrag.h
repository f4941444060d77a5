#pragma once

#include <QPointF>
#include <QRectF>
#include <QtCore/qnamespace.h>

#include <functional>
#include <optional>

// The drag on one surface of the area picker, from the press to the release, with the rules every
// picker keeps: the left button drags, the right button cancels, the release ends the pick with the
// rectangle, or with none when the drag was too small; a release with no press before it cancels.
// It knows no window: the picker feeds it the pointer's events and draws what it holds.
class AreaPickerDrag {
public:
    using Finish = std::function<void(std::optional<QRectF>)>;

    // Points are in the surface's coordinates; `toPixels` takes one to the display's pixels (none:
    // they are the same), and `displayOrigin` is the display's top-left corner in global space.
    // `finish` ends the pick; `redraw` asks for the surface to be painted again.
    AreaPickerDrag(Finish finish, std::function<void()> redraw, QPointF displayOrigin,
        std::function<QPointF(QPointF)> toPixels = {});

    void press(Qt::MouseButton button, QPointF at);
    // The pointer moved; it is not clamped to the surface.
    void move(QPointF at);
    void release(Qt::MouseButton button);
    // Esc, or the surface taken away.
    void cancel();

    // Where the drag began and where it is now, both or neither.
    std::optional<QPointF> anchor() const { return start; }
    std::optional<QPointF> current() const { return now; }

private:
    Finish finish;
    std::function<void()> redraw;
    QPointF origin;
    std::function<QPointF(QPointF)> toPixels;
    std::optional<QPointF> start;
    std::optional<QPointF> now;
};
