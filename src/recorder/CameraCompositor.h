#pragma once

#include "core/MediaTime.h"
#include "recorder/CameraComposite.h"

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QRectF>

#include <optional>

// Draws the camera overlay of one frame: the camera picture filled into the overlay's rectangle
// (cut, never stretched, and centred), masked to its shape, the frame style's chrome on top. It
// works on the overlay's surroundings only and never copies the whole screen picture: the result is
// a small picture of that part of the screen with the overlay drawn in, and where it goes; the
// encoder puts it over the frame as it converts it. Pure functions of their arguments; any thread.
class CameraCompositor {
public:
    struct Overlay {
        QImage image; // Format_RGB32, opaque: screen and overlay together
        QPoint at; // its top-left corner in the frame, in pixels
    };

    // The overlay's rectangle in a picture of `canvas` pixels, top-left origin, by the rule the
    // preview's bubble follows too (cameraOverlayRect). Nothing keeps it inside the picture.
    static QRectF overlayRect(QSizeF canvas, const CameraComposite& composite);
    // The part of a `canvas`-sized picture that the overlay may touch, chrome included: the
    // rectangle grown by what the chrome draws outside it, on even pixels (so that the encoder's
    // half-resolution colour planes take it as it is), and cut to the picture.
    static QRect touchedRect(QSize canvas, const CameraComposite& composite);

    // The overlay over `screen` at `pts` (the chrome's animation runs on the frame's time). None when
    // there is nothing to draw (no camera picture, an empty or wholly outside rectangle): the frame
    // then goes to the encoder as it came.
    static std::optional<Overlay> composite(
        const QImage& screen, const CameraComposite& composite, const MediaTime& pts);

    // `screen` with `overlay` drawn in: what the encoder makes of the pair. For tests and tools.
    static QImage burnIn(const QImage& screen, const Overlay& overlay);
};
