#pragma once

#include <array>
#include <cstdint>
#include <span>

// Which of the four hotkey modifiers are held, followed from raw key presses and releases. Raw
// events carry no modifier state, and asking the server afterwards races with the releases that
// follow a quick combination, so the state is kept from the event stream itself, in order.
//
// Keys count as modifiers by their keysyms: Shift, Control (the "Command" bit), Alt or Meta
// ("Option"), Super ("Control"). Whichever thread reads the events owns the object.
class XInputModifierState {
public:
    // The modifier bit a keysym stands for, 0 for other keysyms.
    static uint64_t bitForKeysym(uint32_t keysym);

    // The server's keyboard mapping: `keysymsPerKeycode` keysyms for each keycode from
    // `firstKeycode` on. Keys held at the time keep counting under their old meaning until released.
    void setKeyboardMapping(uint8_t firstKeycode, int keysymsPerKeycode, std::span<const uint32_t> keysyms);
    // The 32-byte bitmap of keys held now, as the server reports it.
    void setPressedKeys(std::span<const uint8_t, 32> keymap);

    // A modifier key's press changes the state; it is never a hotkey press of its own.
    bool isModifierKey(uint8_t keycode) const { return bitOfKey[keycode] != 0; }
    void keyPressed(uint8_t keycode);
    void keyReleased(uint8_t keycode);

    // The bits of the held modifiers, in the layout of HotkeyBinding::modifierRaw.
    uint64_t modifierRaw() const;

private:
    std::array<uint64_t, 256> bitOfKey {};
    // The modifier bit each held key had when it went down.
    std::array<uint64_t, 256> heldBit {};
};
