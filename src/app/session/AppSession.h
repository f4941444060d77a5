#pragma once

#include <QObject>
#include <QString>

#include <memory>

class AppSettings;
class Platform;
class ControlCommands;
class ControlServer;
class DesktopShortcuts;
class EventNotifications;
class GlobalHotkeys;
class OwnWindowTracker;
class QTextStream;
class RecorderViewModel;

// One running instance: the settings, the session controller on the platform's backends, the
// global hotkeys, and the control socket that `velotape <command>` talks to. The window and the headless mode both run
// one.
//
// Main thread.
class AppSession : public QObject {
    Q_OBJECT
public:
    struct Options {
        bool headless = false;
        QString source; // a descriptor to select once the sources are listed (headless)
        QString socketPath; // empty: the user's private one (see ControlSocketPath)
    };

    // `platform` is the desktop this session runs on (chosen once by the caller).
    AppSession(Options options, std::unique_ptr<Platform> platform, QObject* parent = nullptr);
    ~AppSession() override;

    // Claims the control socket, then runs the start-up tasks. False when another instance runs or
    // the socket can't be made; `error` says which, in one line.
    bool start(QString* error);

    RecorderViewModel* viewModel() const { return controller.get(); }
    Platform& platform() const { return *desktop; }

    // The event loop has ended (Quit, a signal, the last window closed): a running recording is
    // saved, and the clip reported, before the session goes.
    void saveBeforeQuit();
    // The process is ending through exit() with this session still on the stack (the display went
    // away): saves a running recording, then closes everything the destructor would (the ring's
    // folder, the socket file).
    void closeForExit();

private:
    void selectRequestedSource();
    // Whether the selected source is the one saved by an earlier run (not the first display that
    // listing picks when nothing was saved).
    bool restoredSavedSource() const;
    // Segment folders and unfinished clips that runs which crashed or were killed left behind.
    void sweepWhatCrashedRunsLeft();
    void echoEventsTo(QTextStream& out);

    Options options;
    std::unique_ptr<Platform> desktop;
    std::unique_ptr<AppSettings> settings;
    std::unique_ptr<RecorderViewModel> controller;
    std::unique_ptr<ControlCommands> commands;
    std::unique_ptr<ControlServer> server;
    std::unique_ptr<GlobalHotkeys> hotkeys;
    std::unique_ptr<DesktopShortcuts> desktopShortcuts; // where the desktop holds the keys (Wayland)
    std::unique_ptr<OwnWindowTracker> ownWindows; // headless on an X display
    std::unique_ptr<EventNotifications> notifications; // headless: no window shows the toast
};
