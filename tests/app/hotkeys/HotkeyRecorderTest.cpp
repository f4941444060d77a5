#include "app/hotkeys/HotkeyRecorder.h"

#include "app/AppSettings.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

constexpr uint64_t shift = HotkeyBinding::shiftBit;
constexpr uint64_t super = HotkeyBinding::controlBit;
constexpr uint64_t alt = HotkeyBinding::optionBit;
constexpr uint64_t ctrl = HotkeyBinding::commandBit;

// Sends a key press to the text field as the platform would: the shortcut check first, then the
// press. True when the shortcut check was claimed.
bool type(QObject* target, int key, Qt::KeyboardModifiers modifiers, uint16_t keyCode, const QString& text = {})
{
    QKeyEvent shortcut(QEvent::ShortcutOverride, key, modifiers, keyCode, 0, 0, text);
    shortcut.ignore();
    QCoreApplication::sendEvent(target, &shortcut);
    QKeyEvent press(QEvent::KeyPress, key, modifiers, keyCode, 0, 0, text);
    QCoreApplication::sendEvent(target, &press);
    return shortcut.isAccepted();
}

class HotkeyRecorderTest : public ::testing::Test {
protected:
    HotkeyRecorderTest()
        : recorder([this] { return binding; }, [this](const HotkeyBinding& b) { binding = b; })
    {
        QObject::connect(&recorder, &HotkeyRecorder::changed, [this] { ++changes; });
    }

    HotkeyBinding binding = HotkeyBinding::defaultSave();
    HotkeyRecorder recorder;
    QLineEdit field;
    int changes = 0;
};

} // namespace

TEST_F(HotkeyRecorderTest, ListeningShowsAPromptAndSwallowsEveryKey)
{
    EXPECT_EQ(recorder.label(), QStringLiteral("Ctrl+Shift+R"));
    EXPECT_EQ(recorder.labelTone(), HotkeyRecorder::LabelTone::primary);
    EXPECT_TRUE(recorder.showsClearButton());

    recorder.press();
    EXPECT_TRUE(recorder.listening());
    EXPECT_EQ(recorder.label(), QStringLiteral("Press any key…"));
    EXPECT_EQ(recorder.labelTone(), HotkeyRecorder::LabelTone::accent);
    EXPECT_FALSE(recorder.showsClearButton());
    EXPECT_EQ(changes, 1);

    // A letter without modifiers, and modifiers alone, leave it listening.
    EXPECT_TRUE(type(&field, Qt::Key_A, Qt::NoModifier, 38, QStringLiteral("a")));
    type(&field, Qt::Key_Control, Qt::ControlModifier, 37);
    type(&field, Qt::Key_Shift, Qt::ControlModifier | Qt::ShiftModifier, 50);
    EXPECT_TRUE(recorder.listening());
    EXPECT_EQ(binding, HotkeyBinding::defaultSave());
    EXPECT_TRUE(field.text().isEmpty()) << "the keys went to the recorder, not the field";

    // Escape cancels and changes nothing.
    type(&field, Qt::Key_Escape, Qt::NoModifier, 9);
    EXPECT_FALSE(recorder.listening());
    EXPECT_EQ(binding, HotkeyBinding::defaultSave());

    // Not listening: keys go where they were sent.
    type(&field, Qt::Key_B, Qt::NoModifier, 56, QStringLiteral("b"));
    EXPECT_EQ(field.text(), QStringLiteral("b"));
}

TEST_F(HotkeyRecorderTest, AKeyWithAModifierBecomesTheBinding)
{
    recorder.press();
    // Ctrl+Alt+K: the event's text is a control character; the stored character is the key's own.
    type(&field, Qt::Key_K, Qt::ControlModifier | Qt::AltModifier, 45, QStringLiteral("\x0b"));
    EXPECT_FALSE(recorder.listening());
    EXPECT_EQ(binding, (HotkeyBinding { true, 45, QStringLiteral("k"), ctrl | alt }));
    EXPECT_EQ(recorder.label(), QStringLiteral("Ctrl+Alt+K"));

    struct Case {
        int key;
        Qt::KeyboardModifiers modifiers;
        uint16_t keyCode;
        HotkeyBinding expected;
    };
    const Case cases[] = {
        // Keys without a character take the table's glyph, or their code in hexadecimal.
        { Qt::Key_Return, Qt::ControlModifier, 36, { true, 36, QStringLiteral("↩"), ctrl } },
        { Qt::Key_Space, Qt::MetaModifier, 65, { true, 65, QStringLiteral("␣"), super } },
        { Qt::Key_F5, Qt::ShiftModifier, 71, { true, 71, QStringLiteral("0x47"), shift } },
        // The character is stored in lower case; only the label shows it in upper case.
        { Qt::Key_Q, Qt::ShiftModifier | Qt::MetaModifier, 24, { true, 24, QStringLiteral("q"), shift | super } },
        // Keypad and other bits outside the four modifiers are dropped.
        { Qt::Key_5, Qt::ControlModifier | Qt::KeypadModifier, 84, { true, 84, QStringLiteral("5"), ctrl } },
    };
    for (const Case& c : cases) {
        recorder.press();
        type(&field, c.key, c.modifiers, c.keyCode);
        EXPECT_EQ(binding, c.expected) << c.keyCode;
        EXPECT_FALSE(recorder.listening());
    }
    EXPECT_EQ(recorder.label(), QStringLiteral("Ctrl+5"));
    EXPECT_TRUE(field.text().isEmpty());
}

TEST_F(HotkeyRecorderTest, PressingAgainCancelsAndClearTurnsItOff)
{
    recorder.press();
    recorder.press();
    EXPECT_FALSE(recorder.listening());
    EXPECT_EQ(binding, HotkeyBinding::defaultSave());

    recorder.clear();
    EXPECT_EQ(binding, (HotkeyBinding { false, 0, QString(), 0 }));
    EXPECT_EQ(recorder.label(), QStringLiteral("Off"));
    EXPECT_EQ(recorder.labelTone(), HotkeyRecorder::LabelTone::faint);
    EXPECT_FALSE(recorder.showsClearButton()) << "no clear button while the label reads Off";

    // Enabled but without a character: fires, yet reads Off without a clear button.
    binding = HotkeyBinding { true, 27, QString(), ctrl };
    EXPECT_EQ(recorder.label(), QStringLiteral("Off"));
    EXPECT_FALSE(recorder.showsClearButton());
}

TEST(HotkeyRecorderSettings, RecordsIntoTheSettingAndFollowsIt)
{
    QTemporaryDir dir;
    AppSettings settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("v.conf")), QSettings::IniFormat));
    HotkeyRecorder* arm = HotkeyRecorder::forArmHotkey(&settings, &settings);
    int changes = 0;
    QObject::connect(arm, &HotkeyRecorder::changed, [&] { ++changes; });
    EXPECT_EQ(arm->label(), QStringLiteral("Off"));

    QLineEdit field;
    arm->press();
    type(&field, Qt::Key_A, Qt::AltModifier, 38);
    EXPECT_EQ(settings.armHotkey(), (HotkeyBinding { true, 38, QStringLiteral("a"), alt }));
    EXPECT_EQ(settings.saveHotkey(), HotkeyBinding::defaultSave());

    const int before = changes;
    settings.setArmHotkey(HotkeyBinding { true, 39, QStringLiteral("s"), ctrl });
    EXPECT_GT(changes, before);
    EXPECT_EQ(arm->label(), QStringLiteral("Ctrl+S"));
}
