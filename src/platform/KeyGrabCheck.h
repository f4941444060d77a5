#pragma once

#include <cstdint>

// Whether another program of the desktop has taken a key combination for itself (a passive grab on
// X11): such a key goes to that program wherever the focus is, so a hotkey on it would act in both
// programs, or look as if it did nothing. The platform provides it.
class KeyGrabCheck {
public:
    virtual ~KeyGrabCheck() = default;
    // The platform's key code and the modifiers in the bit layout of HotkeyBinding::modifierRaw.
    // False when nobody holds it, or when the platform can't tell. Main thread; quick.
    virtual bool isTakenByAnotherProgram(uint16_t keyCode, uint64_t modifierRaw) = 0;
};
