#pragma once

#include <QString>
#include <Qt>

#include <cstdint>
#include <optional>

// The keys that give no character, by X11 keycode (the evdev keymap every X server uses), and the
// text a hotkey shows for them.
namespace KeyTable {

constexpr uint16_t returnKey = 36;
constexpr uint16_t tabKey = 23;
constexpr uint16_t spaceKey = 65;
constexpr uint16_t backspaceKey = 22;
constexpr uint16_t escapeKey = 9;
constexpr uint16_t leftKey = 113;
constexpr uint16_t rightKey = 114;
constexpr uint16_t downKey = 116;
constexpr uint16_t upKey = 111;

// "↩", "⇥", "␣", "⌫", "⎋", "←", "→", "↓", "↑" for the keys above; any other code as "0x%02X".
QString keyCharFromCode(uint16_t keyCode);

// The Qt key that a stored key character stands for (a letter, a digit, a symbol, or one of the
// glyphs above); none for the hexadecimal form or other longer texts.
std::optional<Qt::Key> qtKeyForKeyChar(const QString& keyChar);

} // namespace KeyTable
