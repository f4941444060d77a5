#pragma once

#include <cstdint>
#include <functional>

// Sees every key press on the desktop without taking it from the program it was meant for: the
// system-wide half of a global hotkey. The platform provides it (XInput2 raw events on X11); the
// hotkeys of the application ask for one per registered combination and drop it to unregister.
class GlobalKeyMonitor {
public:
    // The platform's key code (the X11 keycode) and the modifiers held at the time, in the bit
    // layout of HotkeyBinding::modifierRaw.
    using Handler = std::function<void(uint16_t keyCode, uint64_t modifierRaw)>;

    virtual ~GlobalKeyMonitor() = default;
    // Main thread; the handler is called on the main thread, once for each key press.
    virtual void setHandler(Handler handler) = 0;
};
