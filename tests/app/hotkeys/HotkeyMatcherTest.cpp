#include "app/hotkeys/HotkeyMatcher.h"

#include "app/hotkeys/HotkeyRecorder.h"
#include "app/hotkeys/KeyTable.h"

#include <gtest/gtest.h>

namespace {

constexpr uint64_t shift = HotkeyBinding::shiftBit;
constexpr uint64_t super = HotkeyBinding::controlBit;
constexpr uint64_t alt = HotkeyBinding::optionBit;
constexpr uint64_t ctrl = HotkeyBinding::commandBit;

} // namespace

TEST(HotkeyMatcher, AllFourModifiersMustAgree)
{
    const HotkeyBinding save = HotkeyBinding::defaultSave(); // Ctrl+Shift+R
    EXPECT_TRUE(HotkeyMatcher::matches(save, 27, ctrl | shift));
    EXPECT_FALSE(HotkeyMatcher::matches(save, 27, ctrl));
    EXPECT_FALSE(HotkeyMatcher::matches(save, 27, ctrl | shift | alt));
    EXPECT_FALSE(HotkeyMatcher::matches(save, 27, ctrl | shift | super));
    EXPECT_FALSE(HotkeyMatcher::matches(save, 28, ctrl | shift));
    // Bits outside the mask (Caps Lock 0x10000, keypad 0x200000) don't count.
    EXPECT_TRUE(HotkeyMatcher::matches(save, 27, ctrl | shift | 0x10000 | 0x200000));

    const HotkeyBinding ctrlR { true, 27, QStringLiteral("r"), ctrl };
    EXPECT_FALSE(HotkeyMatcher::matches(ctrlR, 27, ctrl | shift));
    // Stray bits stored in the binding outside the mask don't count either.
    EXPECT_TRUE(HotkeyMatcher::matches(HotkeyBinding { true, 27, QStringLiteral("r"), ctrl | 0x100 }, 27, ctrl));
}

TEST(HotkeyMatcher, OffAndKeyCodeZeroNeverRegister)
{
    HotkeyBinding binding = HotkeyBinding::defaultSave();
    binding.enabled = false;
    EXPECT_FALSE(HotkeyMatcher::registers(binding));
    EXPECT_FALSE(HotkeyMatcher::matches(binding, 27, ctrl | shift));
    const HotkeyBinding onZero { true, 0, QStringLiteral("a"), ctrl };
    EXPECT_FALSE(HotkeyMatcher::registers(onZero));
    EXPECT_FALSE(HotkeyMatcher::matches(onZero, 0, ctrl));
    // An empty key character doesn't stop a binding from firing; it only reads "Off".
    const HotkeyBinding noChar { true, 27, QString(), ctrl };
    EXPECT_TRUE(HotkeyMatcher::matches(noChar, 27, ctrl));
    EXPECT_EQ(HotkeyRecorder::bindingText(noChar), QStringLiteral("Off"));
}

TEST(HotkeyMatcher, QtModifiersMapToTheStoredBits)
{
    EXPECT_EQ(HotkeyMatcher::modifierRawFromQt(Qt::ControlModifier), ctrl);
    EXPECT_EQ(HotkeyMatcher::modifierRawFromQt(Qt::MetaModifier), super);
    EXPECT_EQ(HotkeyMatcher::modifierRawFromQt(Qt::AltModifier), alt);
    EXPECT_EQ(HotkeyMatcher::modifierRawFromQt(Qt::ShiftModifier | Qt::KeypadModifier), shift);
    const uint64_t all = ctrl | shift | alt | super;
    EXPECT_EQ(HotkeyMatcher::modifierRawFromQt(HotkeyMatcher::qtModifiers(all)), all);
}

TEST(HotkeyMatcher, LabelsAndMenuShortcuts)
{
    EXPECT_EQ(HotkeyRecorder::bindingText(HotkeyBinding::defaultSave()), QStringLiteral("Ctrl+Shift+R"));
    EXPECT_EQ(HotkeyRecorder::bindingText(HotkeyBinding::defaultArm()), QStringLiteral("Off"));
    EXPECT_EQ(HotkeyRecorder::bindingText({ true, 36, QStringLiteral("↩"), alt }), QStringLiteral("Alt+Return"));
    EXPECT_EQ(HotkeyRecorder::bindingText({ true, 122, QStringLiteral("0x7A"), super }), QStringLiteral("Meta+0X7A"));
    EXPECT_EQ(
        HotkeyRecorder::bindingText({ true, 19, QStringLiteral("0"), ctrl | shift }), QStringLiteral("Ctrl+Shift+0"));

    EXPECT_EQ(HotkeyMatcher::menuShortcut(HotkeyBinding::defaultSave()), QKeySequence(QStringLiteral("Ctrl+Shift+R")));
    EXPECT_TRUE(HotkeyMatcher::menuShortcut(HotkeyBinding { true, 27, QString(), ctrl }).isEmpty());
    EXPECT_TRUE(HotkeyMatcher::menuShortcut(HotkeyBinding { false, 27, QStringLiteral("r"), ctrl }).isEmpty());
    // Only the four modifiers reach the menu.
    EXPECT_EQ(HotkeyMatcher::menuShortcut(HotkeyBinding { true, 27, QStringLiteral("r"), ctrl | 0x10000 }),
        QKeySequence(QStringLiteral("Ctrl+R")));
}

TEST(KeyTable, KeysWithoutACharacterInX11KeyCodes)
{
    EXPECT_EQ(KeyTable::keyCharFromCode(36), QStringLiteral("↩"));
    EXPECT_EQ(KeyTable::keyCharFromCode(23), QStringLiteral("⇥"));
    EXPECT_EQ(KeyTable::keyCharFromCode(65), QStringLiteral("␣"));
    EXPECT_EQ(KeyTable::keyCharFromCode(22), QStringLiteral("⌫"));
    EXPECT_EQ(KeyTable::keyCharFromCode(9), QStringLiteral("⎋"));
    EXPECT_EQ(KeyTable::keyCharFromCode(113), QStringLiteral("←"));
    EXPECT_EQ(KeyTable::keyCharFromCode(114), QStringLiteral("→"));
    EXPECT_EQ(KeyTable::keyCharFromCode(116), QStringLiteral("↓"));
    EXPECT_EQ(KeyTable::keyCharFromCode(111), QStringLiteral("↑"));
    EXPECT_EQ(KeyTable::keyCharFromCode(122), QStringLiteral("0x7A"));
    EXPECT_EQ(KeyTable::keyCharFromCode(8), QStringLiteral("0x08"));
    EXPECT_EQ(KeyTable::keyCharFromCode(300), QStringLiteral("0x12C"));

    EXPECT_EQ(KeyTable::qtKeyForKeyChar(QStringLiteral("r")), Qt::Key_R);
    EXPECT_EQ(KeyTable::qtKeyForKeyChar(QStringLiteral("↑")), Qt::Key_Up);
    EXPECT_EQ(KeyTable::qtKeyForKeyChar(QStringLiteral("é")), Qt::Key_Eacute);
    EXPECT_FALSE(KeyTable::qtKeyForKeyChar(QStringLiteral("0x7A")));
    EXPECT_FALSE(KeyTable::qtKeyForKeyChar(QString()));
    EXPECT_FALSE(KeyTable::qtKeyForKeyChar(QStringLiteral(" ")));
}
