#pragma once

#include <QByteArray>
#include <QImage>
#include <QRectF>

#include <cstdint>
#include <optional>

// What the area monitor needs of the screen: a picture of a rectangle, a picture of one window's
// own pixels, and where a window is now. All rectangles are in global display space (top left of
// the main display, y down), in points, and pictures come at one pixel a point.
//
// The program connects this to its capture backend; tests give pictures of their own. Called on
// the main thread; each call may block for the length of one grab.
class AreaGrabber {
public:
    virtual ~AreaGrabber() = default;

    // Whatever the screen shows there. None on failure.
    virtual std::optional<QImage> grabRect(const QRectF& globalRect) = 0;
    // The part of `windowID` under `globalRect`, unaffected by what covers it. None on failure or
    // when the window is gone.
    virtual std::optional<QImage> grabWindowRect(uint32_t windowID, const QRectF& globalRect) = 0;
    // The window's present frame, or none when it is gone.
    virtual std::optional<QRectF> windowFrame(uint32_t windowID) = 0;

    // The area signature of what grabRect and grabWindowRect would give, for the monitor's ticks,
    // which keep no picture. These grab and reduce; a grabber that can read the screen more
    // cheaply overrides them, and must give the same bytes.
    virtual std::optional<QByteArray> signatureOfRect(const QRectF& globalRect);
    virtual std::optional<QByteArray> signatureOfWindowRect(uint32_t windowID, const QRectF& globalRect);
};
