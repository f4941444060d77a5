#pragma once

#include <QString>

// What the settings screen tells the user about the desktop the program runs on, each in words a
// user of that desktop understands: how the hotkeys are heard, whether our own window can be left
// out of the picture, what stands behind screen capture, and whether a frame can be drawn around
// the watched area.
struct DesktopWords {
    // Where the program can take no global keys at all: how to bind its commands in the desktop's
    // own key settings instead of the hotkey rows. Empty where the hotkey rows work.
    QString hotkeyBindingNote;
    QString saveHotkeyHelp;
    QString armHotkeyHelp;
    QString hideSelfHelp;
    QString screenCaptureNote;
    // Where no frame can stand around the watched area: what shows the armed state instead. Empty
    // where the frame is drawn.
    QString noOverlayFrame;
    // The settings' About card: what the program is built on, and where to look when recording fails.
    QString builtWith;
    QString whenRecordingFails;

    static DesktopWords x11();
    // `globalShortcuts`: the portal lets the desktop bind our actions to keys. `overlayLayer`: the
    // compositor lets a surface of ours stand above every window.
    static DesktopWords wayland(bool globalShortcuts, bool overlayLayer);
};
