#pragma once

#include "capture/CaptureApplication.h"

#include <QRectF>
#include <QString>

#include <cstdint>
#include <optional>

// A window as the platform lists it, before any filtering.
struct CaptureWindow {
    uint32_t windowID = 0;
    // 0 for ordinary application windows; anything else is a panel, menu, tooltip, desktop or the like.
    int windowLayer = 0;
    bool isOnScreen = false;
    // Global display space, points.
    QRectF frame;
    std::optional<QString> title;
    std::optional<CaptureApplication> owningApplication;
};
