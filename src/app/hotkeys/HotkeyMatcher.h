#pragma once

#include "core/HotkeyBinding.h"

#include <QKeySequence>
#include <Qt>

#include <cstdint>

// When a key press fires a hotkey, and how the stored modifier bits meet Qt's.
//
// "Command" is Qt's ControlModifier (Ctrl), "Control" is Qt's MetaModifier (Super), "Option" is Alt.
namespace HotkeyMatcher {

// Enabled and with a key code other than 0: key code 0 means unset, so a binding on it is stored
// and shown but never listened for.
bool registers(const HotkeyBinding& binding);

// The binding registers, the key codes are equal, and all four modifiers agree: Ctrl+R doesn't fire
// for Ctrl+Shift+R. Bits outside the mask (Caps Lock and the like) don't count.
bool matches(const HotkeyBinding& binding, uint16_t keyCode, uint64_t modifierRaw);

uint64_t modifierRawFromQt(Qt::KeyboardModifiers modifiers);
Qt::KeyboardModifiers qtModifiers(uint64_t modifierRaw);

// The shortcut a menu item shows for the binding: none when it is off or has no key character.
QKeySequence menuShortcut(const HotkeyBinding& binding);

} // namespace HotkeyMatcher
