#pragma once

#include <QString>

// What a screen, the tray or a notification may ask of the session. The decisions stay with the
// session controller: these only ask, and the controller decides what comes of it.
//
// Main thread.
class SessionActions {
public:
    virtual ~SessionActions() = default;

    // Stop a running recording, start one otherwise: the record button, the menu item, the hotkey.
    virtual void toggleRecording() = 0;
    // Configure the ring for the selected source and start its stream.
    virtual void startPreview() = 0;
    // Throw the ring away, stop the stream and start it again (a new source, new stream settings).
    virtual void restartStream() = 0;
    // Where the desktop chooses what is shared: open its dialog again, and restart on what the
    // user picks there (on what was shared before, if the dialog is closed).
    virtual void askDesktopForSource() = 0;
    // Disarm an armed area monitor, arm a disarmed one; gives the toast it showed.
    virtual QString toggleAreaMonitor() = 0;
    // The window's visibility as the user sees it: the preview only runs while it can be seen, and a
    // stream that feeds nothing stops while it can't.
    virtual void setWindowSeen(bool seen) = 0;
    // One line for the user, shown a short while.
    virtual void showToast(const QString& text) = 0;

protected:
    SessionActions() = default;
    SessionActions(const SessionActions&) = default;
    SessionActions& operator=(const SessionActions&) = default;
};
