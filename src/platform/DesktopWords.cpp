#include "platform/DesktopWords.h"

DesktopWords DesktopWords::x11()
{
    DesktopWords words;
    words.saveHotkeyHelp = QStringLiteral("Click the pill and press any combination. Works anywhere when Velotape is "
                                          "running: X11 lets it hear the keys of every program, with no permission "
                                          "to grant.");
    words.armHotkeyHelp = QStringLiteral("Toggles the area monitor between armed and disarmed. Default off — set a "
                                         "combo to enable. Works system-wide.");
    words.hideSelfHelp = QStringLiteral("Excludes this window from recordings where the display server allows it. "
                                        "X11 doesn't: a capture of a whole display shows Velotape's window like any "
                                        "other.");
    words.screenCaptureNote = QStringLiteral("X11 lets every program capture the screen; there is no permission to "
                                             "grant. If recordings come out black or empty, check that you are in an "
                                             "X11 session: under XWayland only X programs can be seen.");
    words.builtWith = QStringLiteral("Rolling pre-record buffer + on-demand MP4 saves, with an area-monitor "
                                     "auto-recorder. Built with Qt, FFmpeg, X11, PipeWire and PulseAudio.");
    words.whenRecordingFails = QStringLiteral("If recording fails, check that the X server answers: on X11 Velotape "
                                              "captures the screen through it.");
    return words;
}

DesktopWords DesktopWords::wayland(bool globalShortcuts, bool overlayLayer)
{
    DesktopWords words = x11();
    if (!globalShortcuts)
        words.hotkeyBindingNote = QStringLiteral(
            "This desktop lets no program take global keys: bind the commands `velotape toggle` (save a clip) and "
            "`velotape arm` (arm the area monitor) to keys in your desktop's own keyboard shortcut settings.");
    words.saveHotkeyHelp = QStringLiteral("Click the pill and press any combination. Your desktop holds the key and "
                                          "may ask you to confirm it; its own keyboard settings can change it later.");
    words.hideSelfHelp = QStringLiteral("Excludes this window from recordings where the display server allows it. "
                                        "On Wayland your desktop makes the picture: Velotape's window shows in it "
                                        "unless the desktop leaves it out.");
    words.screenCaptureNote = QStringLiteral(
        "Your desktop asks once which screen or window to share and remembers the answer. To share another, pick "
        "\"Screen or window (your desktop asks)\" in the source picker. If recordings come out black or empty, "
        "check that xdg-desktop-portal and PipeWire run.");
    if (!overlayLayer)
        words.noOverlayFrame = QStringLiteral("This desktop lets no program draw over other windows: while armed, "
                                              "the Armed card in the window and the tray icon show it instead.");
    words.whenRecordingFails
        = QStringLiteral("If recording fails on Wayland, check that xdg-desktop-portal and PipeWire run.");
    return words;
}
