#pragma once

#include "app/RecorderViewModel.h"
#include "core/WindowVisibilityWatcher.h"

#include <cstdint>
#include <memory>

class KeyGrabCheck;

// Chooses the platform backends once at start-up: X11 capture when an X display answers (the null
// backend, which reports "not available", otherwise), PulseAudio for system audio and the microphones, and the
// freedesktop sound and file manager.
namespace PlatformFactory {

RecorderViewModel::Platform create();

// Reports when `window` (a native window id of ours) is minimised or wholly covered and when it
// shows again. Null where the session can't tell (not X11).
std::unique_ptr<WindowVisibilityWatcher> watchWindowVisibility(
    uintptr_t window, WindowVisibilityWatcher::Report report);

// Tells whether another program holds a key combination. Null where the session can't tell (not
// X11).
std::shared_ptr<KeyGrabCheck> keyGrabCheck();

} // namespace PlatformFactory
