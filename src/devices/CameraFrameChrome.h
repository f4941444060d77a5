#pragma once

#include "core/SettingsEnums.h"

#include <QRectF>

class QPainter;

// The camera bubble's frame as the live bubble and the settings' preview show it: the same twelve
// styles as in a recording, laid out with y downward, with a few differences of line width and
// shadow that suit a small picture on a screen. A pure function of its arguments: the widget that
// uses it brings the time (the wall clock's seconds, so that the animation runs whatever the
// recorder does) and its own timer.
class CameraFrameChrome {
public:
    // Paints `style` for a bubble of `shape` filling `bounds` at `timeSeconds`. Nothing for bounds
    // without area. Leaves the painter as it was.
    static void draw(
        QPainter& painter, const QRectF& bounds, CameraShape shape, CameraFrameStyle style, double timeSeconds);

    // Whether `style` moves: the others need no timer.
    static bool isAnimated(CameraFrameStyle style);
    // The caption under a style's preview in the settings.
    static const char* caption(CameraFrameStyle style);
};
