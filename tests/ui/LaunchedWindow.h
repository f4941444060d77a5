#pragma once

#include <QString>

#include <memory>

class AppDelegate;

// The real window started afresh, as the interface tests want it: the settings cleared (so no
// source is saved), clips into `clipsFolder`, no sound, a buffer of three seconds and a control
// socket at `socketPath`. The window is shown and exposed; null (with the test failed) when not.
std::unique_ptr<AppDelegate> launchWindow(const QString& clipsFolder, const QString& socketPath);
