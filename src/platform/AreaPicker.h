#pragma once

#include <QRectF>

#include <functional>
#include <optional>

// Lets the user draw a rectangle on the screen. The completion runs once on the main thread with
// the rectangle in global display space, or none when the user cancelled.
class AreaPicker {
public:
    using Completion = std::function<void(std::optional<QRectF> rect)>;

    virtual ~AreaPicker() = default;
    // Main thread. Returns at once; the answer comes through `completion`.
    virtual void pick(Completion completion) = 0;
};
