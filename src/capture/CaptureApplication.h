#pragma once

#include <QString>

#include <cstdint>

// The application that owns a window. On X11 the bundle identifier is the class half of WM_CLASS
// and the name is the desktop entry's Name, or the class made presentable.
struct CaptureApplication {
    QString bundleIdentifier;
    QString applicationName;
    int64_t processID = 0; // 0 when the platform doesn't say
};
