#include "platform/x11/XInputModifierState.h"

#include "core/HotkeyBinding.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint8_t controlL = 37, shiftL = 50, altL = 64, superL = 133, shiftR = 62, keyR = 27;

// Two keysyms a key, from keycode 8, like the standard evdev map.
XInputModifierState standardKeyboard()
{
    std::vector<uint32_t> keysyms((255 - 8 + 1) * 2, 0);
    auto set = [&](uint8_t keycode, uint32_t first, uint32_t second) {
        keysyms[(keycode - 8) * 2] = first;
        keysyms[(keycode - 8) * 2 + 1] = second;
    };
    set(controlL, 0xffe3, 0);
    set(shiftL, 0xffe1, 0);
    set(shiftR, 0xffe2, 0);
    set(altL, 0xffe9, 0xffe7); // Alt_L, Meta_L
    set(superL, 0xffeb, 0);
    set(keyR, 'r', 'R');
    XInputModifierState state;
    state.setKeyboardMapping(8, 2, keysyms);
    return state;
}

} // namespace

TEST(XInputModifierState, FollowsPressesAndReleasesInOrder)
{
    XInputModifierState state = standardKeyboard();
    EXPECT_TRUE(state.isModifierKey(controlL));
    EXPECT_FALSE(state.isModifierKey(keyR));
    state.keyPressed(controlL);
    state.keyPressed(shiftL);
    state.keyPressed(keyR);
    EXPECT_EQ(state.modifierRaw(), HotkeyBinding::commandBit | HotkeyBinding::shiftBit);
    // Both shift keys down, one released: Shift is still held.
    state.keyPressed(shiftR);
    state.keyReleased(shiftL);
    EXPECT_EQ(state.modifierRaw(), HotkeyBinding::commandBit | HotkeyBinding::shiftBit);
    state.keyReleased(shiftR);
    state.keyReleased(controlL);
    EXPECT_EQ(state.modifierRaw(), 0u);
    state.keyPressed(altL);
    state.keyPressed(superL);
    EXPECT_EQ(state.modifierRaw(), HotkeyBinding::optionBit | HotkeyBinding::controlBit);
}

TEST(XInputModifierState, KeysHeldAtStartAndMappingChanges)
{
    XInputModifierState state = standardKeyboard();
    std::array<uint8_t, 32> keymap {};
    keymap[controlL / 8] |= 1u << (controlL % 8);
    keymap[keyR / 8] |= 1u << (keyR % 8);
    state.setPressedKeys(keymap);
    EXPECT_EQ(state.modifierRaw(), HotkeyBinding::commandBit);

    // The key is remapped while held: it counts as what it was until it comes up.
    state.setKeyboardMapping(8, 2, std::vector<uint32_t>((255 - 8 + 1) * 2, 0));
    EXPECT_EQ(state.modifierRaw(), HotkeyBinding::commandBit);
    EXPECT_FALSE(state.isModifierKey(controlL));
    state.keyReleased(controlL);
    EXPECT_EQ(state.modifierRaw(), 0u);
    state.keyPressed(controlL);
    EXPECT_EQ(state.modifierRaw(), 0u);
}
