#pragma once

#include "core/HotkeyBinding.h"

#include <QString>

#include <functional>
#include <vector>

// Global shortcuts that the desktop itself holds and reports, where it offers them (a Wayland
// compositor through the GlobalShortcuts portal). The program names its actions with a preferred
// key each; the desktop binds them, and the user confirms or changes the keys in its settings.
class DesktopShortcuts {
public:
    struct Shortcut {
        QString id; // "save", "arm"
        QString description; // shown in the desktop's settings
        HotkeyBinding preferred; // offered as the trigger when it is on
    };
    using Activated = std::function<void(const QString& id)>;

    virtual ~DesktopShortcuts() = default;
    // Main thread. Asks the desktop to bind `shortcuts` (the asking runs elsewhere: the desktop
    // may show a dialog); `activated` is called on the main thread at each press of one.
    virtual void bind(const std::vector<Shortcut>& shortcuts, Activated activated) = 0;
};
