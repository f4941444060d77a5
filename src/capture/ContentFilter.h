#pragma once

#include "capture/CaptureApplication.h"
#include "capture/CaptureDisplay.h"
#include "capture/CaptureWindow.h"

#include <vector>

// What one stream shows: a display (less some applications), or one window by itself, wherever it
// is and whatever covers it.
struct ContentFilter {
    enum class Kind { display, window };

    Kind kind = Kind::display;
    CaptureDisplay display; // Kind::display
    std::vector<CaptureApplication> excludedApplications; // Kind::display
    CaptureWindow window; // Kind::window
};
