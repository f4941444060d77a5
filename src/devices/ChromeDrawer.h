#pragma once

#include "core/SettingsEnums.h"

#include <QRectF>

class QPainter;

// The camera bubble's frame as it is burnt into a recording: one of the twelve styles drawn around
// the bubble's rectangle at a moment of the recording's own clock. A pure function of its
// arguments, with nothing kept between frames and no timer: the recorder calls it for each frame
// with that frame's time, so the animation follows media time, not the encoder's speed.
//
// Lengths scale with the bubble's shorter side, in the painter's units (output pixels), except the
// few fixed ones a style gives in pixels (a comet's reach, the LIVE pill).
//
// The frame is laid out with y upward from the bubble's lower edge, as a recording's picture is
// measured, although `painter` paints a top-left image: animations that walk around the bubble
// therefore run the other way round than in the live bubble, and a rising scanline falls there.
// Text stays upright.
class ChromeDrawer {
public:
    // Paints `style` around `rect` (in the painter's coordinates, top-left origin) for a bubble of
    // `shape` at `timeSeconds`. Nothing for a rectangle without area. Leaves the painter as it was.
    // Safe on any thread, for a painter on a QImage.
    static void draw(
        QPainter& painter, const QRectF& rect, CameraShape shape, CameraFrameStyle style, double timeSeconds);
};
