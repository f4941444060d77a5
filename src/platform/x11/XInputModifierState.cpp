#include "platform/x11/XInputModifierState.h"

#include "core/HotkeyBinding.h"

namespace {

// Keysyms of the modifier keys (X11/keysymdef.h).
constexpr uint32_t shiftL = 0xffe1, shiftR = 0xffe2;
constexpr uint32_t controlL = 0xffe3, controlR = 0xffe4;
constexpr uint32_t metaL = 0xffe7, metaR = 0xffe8;
constexpr uint32_t altL = 0xffe9, altR = 0xffea;
constexpr uint32_t superL = 0xffeb, superR = 0xffec;

} // namespace

uint64_t XInputModifierState::bitForKeysym(uint32_t keysym)
{
    switch (keysym) {
    case shiftL:
    case shiftR:
        return HotkeyBinding::shiftBit;
    case controlL:
    case controlR:
        return HotkeyBinding::commandBit;
    case metaL:
    case metaR:
    case altL:
    case altR:
        return HotkeyBinding::optionBit;
    case superL:
    case superR:
        return HotkeyBinding::controlBit;
    default:
        return 0;
    }
}

void XInputModifierState::setKeyboardMapping(
    uint8_t firstKeycode, int keysymsPerKeycode, std::span<const uint32_t> keysyms)
{
    bitOfKey.fill(0);
    if (keysymsPerKeycode <= 0) return;
    const size_t perKey = static_cast<size_t>(keysymsPerKeycode);
    for (size_t i = 0; i + perKey <= keysyms.size(); i += perKey) {
        const size_t keycode = firstKeycode + i / perKey;
        if (keycode > 255) break;
        uint64_t bits = 0;
        for (size_t level = 0; level < perKey; ++level)
            bits |= bitForKeysym(keysyms[i + level]);
        bitOfKey[keycode] = bits;
    }
}

void XInputModifierState::setPressedKeys(std::span<const uint8_t, 32> keymap)
{
    heldBit.fill(0);
    for (size_t keycode = 0; keycode < 256; ++keycode) {
        if (keymap[keycode / 8] & (1u << (keycode % 8))) keyPressed(static_cast<uint8_t>(keycode));
    }
}

void XInputModifierState::keyPressed(uint8_t keycode)
{
    heldBit[keycode] = bitOfKey[keycode];
}

void XInputModifierState::keyReleased(uint8_t keycode)
{
    heldBit[keycode] = 0;
}

uint64_t XInputModifierState::modifierRaw() const
{
    uint64_t bits = 0;
    for (uint64_t b : heldBit)
        bits |= b;
    return bits;
}
