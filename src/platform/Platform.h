#pragma once

#include "platform/AreaPicker.h"
#include "platform/ArmedFrame.h"
#include "platform/CameraBackend.h"
#include "platform/CaptureBackend.h"
#include "platform/DesktopIntegration.h"
#include "platform/DesktopNotifications.h"
#include "platform/DesktopShortcuts.h"
#include "platform/DesktopWords.h"
#include "platform/GlobalKeyMonitor.h"
#include "platform/KeyGrabCheck.h"
#include "platform/MicrophoneBackend.h"
#include "platform/SoundServerWatcher.h"
#include "platform/SystemAudioBackend.h"
#include "platform/SystemTray.h"
#include "platform/TextRecognizer.h"
#include "platform/WindowVisibilityWatcher.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

// Everything the desktop provides, for one session: the screen, system audio, microphones, global
// hotkeys, the area picker and the armed frame, window visibility, the file manager with the trash
// and the sounds, and OCR. The interfaces live beside this file and the backends below it (x11/, wayland/,
// pulse/, ocr/, desktop/); this class is the one place that knows the backends, so nothing else in
// the program includes their headers.
//
// One is made at start-up for the backend the session asks for (chooseBackend). Pieces are made
// when first asked for, so a command that only reads clips never connects to a display. Main
// thread, except where a method says otherwise.
class Platform {
public:
    enum class Backend { x11, wayland };

    // The backend named on the command line ("x11", "wayland"); none for any other name.
    static std::optional<Backend> backendNamed(const QString& name);
    static QString nameOf(Backend backend);
    // The flag when one was given, else Wayland when the session says so (XDG_SESSION_TYPE), else X11.
    static Backend chooseBackend(std::optional<Backend> requested, const QByteArray& sessionType);
    // chooseBackend with this process's environment.
    static Backend backendForThisSession(std::optional<Backend> requested);

    explicit Platform(Backend backend);
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    Backend backend() const { return chosen; }

    // Empty when the screen can be captured; otherwise why not, in words for the user.
    QString unavailableReason();

    // The screen: listing, streams and single grabs. A backend that says "not available" when this
    // session can't be captured, never null. Shared: the engine, the monitor and the overlays use it.
    std::shared_ptr<CaptureBackend> screen();
    std::shared_ptr<SystemAudioBackend> systemAudio();
    std::shared_ptr<MicrophoneBackend> microphones();
    // The cameras, with the test camera of VELOTAPE_FAKE_CAMERA among them when it is set.
    std::shared_ptr<CameraBackend> cameras();
    // Says when the sound server goes away and when it is back.
    std::unique_ptr<SoundServerWatcher> soundServerWatcher();
    std::unique_ptr<DesktopIntegration> desktop();
    // Notifications through the session bus's notification service, sent as the application `appId`
    // (its desktop entry's name, by which the desktop finds its name and icon); nothing is shown
    // without a service.
    std::unique_ptr<DesktopNotifications> notifications(const QString& appId);
    // The icon in the tray (a QApplication must exist); it tells itself whether the desktop has a tray.
    std::unique_ptr<SystemTray> systemTray();
    // Makes an OCR engine on the thread that calls it. Any thread.
    RecognizerFactory textRecognizers() const;

    // Whether this process shows its windows on the captured display, and so can put the area
    // picker and the armed frame over it.
    bool showsOverlayWindows() const;
    // Whether the session's display answers, so that even a run without the window can show the
    // picker and the frame on it (the caller then makes the application speak to it). On Wayland:
    // whether the compositor has the layer shell, for the picker and the frame, which need Qt's
    // fonts but not Qt's display. Blocking: asks the compositor.
    bool hasOverlayDisplay();
    // The picker: on X11 a window over each display. On Wayland, where the compositor has the layer
    // shell and the desktop shares a screen, a surface of our own over the live screen, also
    // without the window; elsewhere a full-screen window of ours over a still of the shared
    // stream. Null where none of these can be shown.
    std::unique_ptr<AreaPicker> areaPicker();
    // Null where no window can be put over the desktop: the window and the tray then show alone
    // that the monitor is armed.
    std::unique_ptr<ArmedFrame> armedFrame();

    // A global key monitor; null where the session has none (the hotkeys then work only inside the
    // window, or through `velotape toggle` bound in the desktop's own key settings).
    std::unique_ptr<GlobalKeyMonitor> globalKeyMonitor();
    // Shortcuts the desktop holds for us (the GlobalShortcuts portal on Wayland); null where the
    // session has none. Blocking: asks the session bus.
    std::unique_ptr<DesktopShortcuts> desktopShortcuts();
    // What the settings screen says of this desktop: how keys are heard, what capture needs,
    // whether a frame can stand around the watched area. Blocking: asks the session bus.
    DesktopWords desktopWords();
    // Tells whether another program holds a key combination; null where the session can't tell.
    std::shared_ptr<KeyGrabCheck> keyGrabCheck();
    // Reports when `window` (a native window id of ours) is minimised or wholly covered and when it
    // shows again; null where the session can't tell.
    std::unique_ptr<WindowVisibilityWatcher> watchWindowVisibility(
        uintptr_t window, WindowVisibilityWatcher::Report report);

private:
    Backend chosen;
    std::shared_ptr<CaptureBackend> screenBackend;
    std::shared_ptr<SystemAudioBackend> systemAudioBackend;
    std::shared_ptr<MicrophoneBackend> microphoneBackend;
    std::shared_ptr<CameraBackend> cameraBackend;
};
