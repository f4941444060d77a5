#pragma once

#include <QString>

#include <functional>

class QMenu;

// The program's icon in the desktop's tray (a StatusNotifierItem, or the X11 system tray), drawn for
// what the recorder is doing, with the menu the shell gives it.
//
// Main thread.
class SystemTray {
public:
    enum class State {
        idle, // no stream: nothing is kept
        buffering, // the ring keeps the last seconds
        recording, // a clip is being recorded
        armed, // the area monitor waits for its area to change
    };

    virtual ~SystemTray() = default;

    // Whether the desktop shows tray icons now.
    virtual bool isAvailable() const = 0;
    // Puts the icon in the tray with this menu (owned by the caller, outliving the tray).
    virtual void show(QMenu* menu) = 0;
    virtual bool isShown() const = 0;
    virtual void setState(State state, const QString& toolTip) = 0;

    // A click on the icon itself (not on its menu).
    std::function<void()> onActivated;
};
