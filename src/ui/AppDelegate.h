#pragma once

#include "app/session/AppSession.h"
#include "platform/Platform.h"

#include <QObject>
#include <QSize>

#include <memory>

class ContentView;
class EventNotifications;
class QAction;
class OwnWindowTracker;
class QMainWindow;
class RecorderViewModel;
class TrayMenu;
class UpdateChecker;
class WindowVisibilityWatcher;

// The application shell of the window mode: the session (settings, controller, hotkeys, control
// socket), the one window with its menu bar, the update checker, and the stream following the
// window's visibility. It has no model of its own.
//
// Main thread.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    static constexpr QSize windowSize { 1180, 760 };
    static constexpr QSize minimumWindowSize { 480, 360 };

    // Without a platform, the one this process's session asks for (Platform::backendForThisSession).
    explicit AppDelegate(
        AppSession::Options options = {}, std::unique_ptr<Platform> platform = {}, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Starts the session, makes the window centred on the primary screen, builds the menu, puts
    // the icon in the tray where the desktop has one and starts watching the window. False with the
    // reason in *error when the session can't start (another instance runs): then no window is made.
    bool applicationDidFinishLaunching(QString* error);
    // Before launching: start with the window hidden in the tray (where there is one).
    void setStartHidden(bool hidden) { startHidden = hidden; }

    QMainWindow* window() const { return mainWindow.get(); }
    ContentView* contentView() const { return content; }
    RecorderViewModel* viewModel() const { return session->viewModel(); }
    AppSession* appSession() const { return session.get(); }
    // "Start Recording" in the File menu.
    QAction* recordMenuItem() const { return recordItem; }
    // The icon in the tray and its menu; not shown where the desktop has no tray.
    TrayMenu* tray() const { return trayMenu.get(); }
    // On the screen now: shown, not minimised and not wholly covered.
    bool isWindowSeen() const;

    // Minimised or wholly covered: previews stop, and a stream that feeds no ring, no recording
    // and no armed monitor stops too. Shown again: previews come back, and a window that has no
    // stream gets one (with a source selected).
    void windowVisibilityChanged(bool visible);
    // What "Start Recording" does: stop a running recording, start one otherwise.
    void menuToggleRecording();
    // Brings the window back from the tray (or from under other windows).
    void showWindow();
    // Ends the program, also while the window is hidden in the tray.
    void quit();

private:
    void buildMainMenu();
    // The record item shows the save hotkey beside it, and follows the setting.
    void showSaveHotkeyInMenu();

    std::unique_ptr<AppSession> session;
    std::unique_ptr<QMainWindow> mainWindow;
    ContentView* content = nullptr;
    QAction* recordItem = nullptr;
    std::unique_ptr<WindowVisibilityWatcher> visibility;
    std::unique_ptr<UpdateChecker> updater;
    std::unique_ptr<OwnWindowTracker> ownWindows;
    std::unique_ptr<TrayMenu> trayMenu;
    std::unique_ptr<EventNotifications> notifications;
    bool visible = true;
    bool startHidden = false;
    bool quitting = false;
};
