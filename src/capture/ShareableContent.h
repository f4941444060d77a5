#pragma once

#include "capture/CaptureApplication.h"
#include "capture/CaptureDisplay.h"
#include "capture/CaptureWindow.h"

#include <vector>

// Everything the platform offers for capture at one moment, in the platform's own order.
struct ShareableContent {
    std::vector<CaptureDisplay> displays;
    std::vector<CaptureWindow> windows;
    // Applications that a display capture can leave out of its picture. A backend that cannot
    // exclude applications lists none.
    std::vector<CaptureApplication> applications;
};
