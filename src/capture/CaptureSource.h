#pragma once

#include "capture/CaptureDisplay.h"
#include "capture/CaptureWindow.h"

#include <QRectF>
#include <QString>

// What is or will be captured: a whole display, one window by itself, or a rectangle of a display.
//
// A source is its `id`: two sources are equal exactly when their ids are, and the payloads are
// never compared, so a window that has moved since it was listed, or a region with another pixel
// size over the same whole-number rectangle, is still the same source.
class CaptureSource {
public:
    enum class Kind { display, window, region };

    static CaptureSource display(const CaptureDisplay& display);
    static CaptureSource window(const CaptureWindow& window);
    // `localPointRect` is in points, in the display's own coordinates (its top left is 0,0).
    static CaptureSource region(
        const CaptureDisplay& display, const QRectF& localPointRect, int pixelWidth, int pixelHeight);

    Kind kind() const { return sourceKind; }
    // "display-ID", "window-ID" or "region-ID-X-Y-WxH" (the rectangle cut to whole numbers).
    const QString& id() const { return sourceId; }

    // The display of a `display` or `region` source; empty for a window.
    const CaptureDisplay& capturedDisplay() const { return displayPayload; }
    // The window of a `window` source, as it was listed; empty otherwise.
    const CaptureWindow& capturedWindow() const { return windowPayload; }
    // Region payload; empty or zero otherwise.
    const QRectF& localPointRect() const { return regionRect; }
    int pixelWidth() const { return regionPixelWidth; }
    int pixelHeight() const { return regionPixelHeight; }

    friend bool operator==(const CaptureSource& a, const CaptureSource& b) { return a.sourceId == b.sourceId; }
    friend bool operator!=(const CaptureSource& a, const CaptureSource& b) { return !(a == b); }

private:
    CaptureSource() = default;

    Kind sourceKind = Kind::display;
    QString sourceId;
    CaptureDisplay displayPayload;
    CaptureWindow windowPayload;
    QRectF regionRect;
    int regionPixelWidth = 0;
    int regionPixelHeight = 0;
};

size_t qHash(const CaptureSource& source, size_t seed = 0);
