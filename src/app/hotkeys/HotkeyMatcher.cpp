#include "app/hotkeys/HotkeyMatcher.h"

#include "app/hotkeys/KeyTable.h"

namespace HotkeyMatcher {

bool registers(const HotkeyBinding& binding)
{
    return binding.enabled && binding.keyCode != 0;
}

bool matches(const HotkeyBinding& binding, uint16_t keyCode, uint64_t modifierRaw)
{
    return registers(binding) && keyCode == binding.keyCode
        && ((modifierRaw ^ binding.modifierRaw) & HotkeyBinding::modifierMask) == 0;
}

uint64_t modifierRawFromQt(Qt::KeyboardModifiers modifiers)
{
    uint64_t raw = 0;
    if (modifiers & Qt::ShiftModifier) raw |= HotkeyBinding::shiftBit;
    if (modifiers & Qt::MetaModifier) raw |= HotkeyBinding::controlBit;
    if (modifiers & Qt::AltModifier) raw |= HotkeyBinding::optionBit;
    if (modifiers & Qt::ControlModifier) raw |= HotkeyBinding::commandBit;
    return raw;
}

Qt::KeyboardModifiers qtModifiers(uint64_t modifierRaw)
{
    Qt::KeyboardModifiers modifiers;
    if (modifierRaw & HotkeyBinding::shiftBit) modifiers |= Qt::ShiftModifier;
    if (modifierRaw & HotkeyBinding::controlBit) modifiers |= Qt::MetaModifier;
    if (modifierRaw & HotkeyBinding::optionBit) modifiers |= Qt::AltModifier;
    if (modifierRaw & HotkeyBinding::commandBit) modifiers |= Qt::ControlModifier;
    return modifiers;
}

QKeySequence menuShortcut(const HotkeyBinding& binding)
{
    if (!binding.enabled || binding.keyChar.isEmpty()) return {};
    const auto key = KeyTable::qtKeyForKeyChar(binding.keyChar);
    if (!key) return {};
    return QKeySequence(QKeyCombination(qtModifiers(binding.modifierRaw & HotkeyBinding::modifierMask), *key));
}

} // namespace HotkeyMatcher
