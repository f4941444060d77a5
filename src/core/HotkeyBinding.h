#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <optional>

// A key plus modifiers that triggers an action, stored as JSON in a setting.
//
// `keyCode` is the platform's hardware key code (the X11 keycode here). `modifierRaw` keeps the
// classic bit layout: Shift 0x020000, Control 0x040000, Option 0x080000, Command 0x100000. On Linux
// "Command" is the primary shortcut modifier (Ctrl) and "Control" is Super; only the bits of
// `modifierMask` ever count.
struct HotkeyBinding {
    static constexpr uint64_t shiftBit = 0x020000;
    static constexpr uint64_t controlBit = 0x040000;
    static constexpr uint64_t optionBit = 0x080000;
    static constexpr uint64_t commandBit = 0x100000;
    static constexpr uint64_t modifierMask = 0x1E0000;

    // X11 keycode of the R key on the standard evdev keymap.
    static constexpr uint16_t keyCodeR = 27;

    bool enabled = false;
    uint16_t keyCode = 0;
    QString keyChar;
    uint64_t modifierRaw = 0;

    friend bool operator==(const HotkeyBinding&, const HotkeyBinding&) = default;

    // Ctrl+Shift+R, enabled.
    static HotkeyBinding defaultSave();
    // Off: disabled, no key.
    static HotkeyBinding defaultArm();

    // One object with exactly "enabled", "keyCode", "keyChar", "modifierRaw".
    QByteArray toJson() const;
    // None when a key is missing, a value has the wrong type or does not fit; unknown keys are ignored.
    static std::optional<HotkeyBinding> fromJson(const QByteArray& json);
};
