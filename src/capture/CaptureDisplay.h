#pragma once

#include <QRect>
#include <QString>

#include <cstdint>

// A display that can be captured. Sizes are in points; on X11 a point is a pixel of the root window.
struct CaptureDisplay {
    uint32_t displayID = 0;
    int width = 0;
    int height = 0;
    // Where the display lies in global display space (top left of the main display, y down).
    QRect frame;
    // The monitor's name as the platform gives it ("DP-1"), for matching a screen to a display.
    QString name;
};
