#pragma once

#include "app/RecorderViewModel.h"
#include "core/WindowVisibilityWatcher.h"

#include <cstdint>
#include <memory>

class DesktopNotifications;
class KeyGrabCheck;
class SystemTray;

// Chooses the platform backends once at start-up: X11 capture when an X display answers (the null
// backend, which reports "not available", otherwise), PulseAudio for system audio and the microphones, Tesseract to
// read P&L figures off clips, and the freedesktop sound and file manager.
namespace PlatformFactory {

RecorderViewModel::Platform create();

// Whether this application shows windows on an X display (a GUI application on the xcb platform),
// and so can put up the area picker and the armed frame.
bool showsX11Windows();
// Whether the session's display is an X server that answers, so that even a run without the
// window can show the picker and the frame on it.
bool isX11Session();
// Makes an OCR engine for the calling thread (Tesseract).
RecognizerFactory textRecognizers();

// Notifications over the session bus's notification service (nothing is shown without one).
std::unique_ptr<DesktopNotifications> notifications();
// The tray icon (a QApplication must exist); whether the desktop has a tray, it tells itself.
std::unique_ptr<SystemTray> systemTray();

// Reports when `window` (a native window id of ours) is minimised or wholly covered and when it
// shows again. Null where the session can't tell (not X11).
std::unique_ptr<WindowVisibilityWatcher> watchWindowVisibility(
    uintptr_t window, WindowVisibilityWatcher::Report report);

// Tells whether another program holds a key combination. Null where the session can't tell (not
// X11).
std::shared_ptr<KeyGrabCheck> keyGrabCheck();

} // namespace PlatformFactory
