#pragma once

#include "core/HotkeyBinding.h"
#include "platform/GlobalKeyMonitor.h"

#include <QObject>

#include <functional>
#include <memory>

class AppSettings;

// The save hotkey and the arm hotkey, each heard twice: by a local monitor (an application event
// filter, which takes the key so that it reaches neither a text field nor a menu) and by a global
// monitor of the platform, which sees the key in every other program without taking it.
//
// The global monitor also sees keys typed into this application; those are left to the local
// monitor, so that one press fires once. Main thread only; the actions run on it too.
class GlobalHotkeys : public QObject {
    Q_OBJECT

public:
    // Makes one global monitor; null when the platform has none to give (the hotkey then works
    // only inside the application).
    using MonitorFactory = std::function<std::unique_ptr<GlobalKeyMonitor>()>;

    explicit GlobalHotkeys(MonitorFactory makeGlobalMonitor, QObject* parent = nullptr);
    ~GlobalHotkeys() override;

    // Replace the two monitors of each hotkey. A binding that is off, or on key code 0, leaves the
    // hotkey without monitors.
    void registerHotkey(const HotkeyBinding& binding);
    void registerArmHotkey(const HotkeyBinding& binding);
    void unregisterHotkey();
    void unregisterArmHotkey();

    // Registers both bindings of the settings now, and again whenever one of them changes.
    void followSettings(AppSettings* settings);

    // What the save hotkey and the arm hotkey do.
    std::function<void()> onSaveHotkey;
    std::function<void()> onArmHotkey;
    // Whether this application has the keyboard now (then the local monitor hears the key).
    // Defaults to having a focused window.
    std::function<bool()> applicationHasKeyboardFocus;

private:
    enum class Hotkey { save, arm };
    // A local monitor may be replaced from inside its own event filter (an action that changes a
    // setting), so it is switched off at once and deleted later.
    struct DeleteLater {
        void operator()(QObject* filter) const;
    };
    struct Monitors {
        std::unique_ptr<QObject, DeleteLater> local;
        std::unique_ptr<GlobalKeyMonitor> global;
    };

    void registerMonitors(Hotkey hotkey, const HotkeyBinding& binding);
    Monitors& monitorsOf(Hotkey hotkey);
    void fire(Hotkey hotkey);

    MonitorFactory makeGlobalMonitor;
    Monitors saveMonitors;
    Monitors armMonitors;
};
