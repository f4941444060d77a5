#include "app/hotkeys/GlobalHotkeys.h"

#include "app/AppSettings.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QSettings>
#include <QTemporaryDir>
#include <QWidget>

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

constexpr uint64_t shift = HotkeyBinding::shiftBit;
constexpr uint64_t alt = HotkeyBinding::optionBit;
constexpr uint64_t ctrl = HotkeyBinding::commandBit;

// The platform's side: every live monitor sees every key press on the desktop.
struct FakeDesktop {
    std::vector<GlobalKeyMonitor::Handler*> monitors;
    int made = 0;
    bool refuse = false;

    void press(uint16_t keyCode, uint64_t modifierRaw)
    {
        for (auto* handler : std::vector(monitors))
            if (*handler) (*handler)(keyCode, modifierRaw);
    }
};

class FakeMonitor : public GlobalKeyMonitor {
public:
    explicit FakeMonitor(FakeDesktop& desktop)
        : desktop(desktop)
    {
        desktop.monitors.push_back(&handler);
    }
    ~FakeMonitor() override { std::erase(desktop.monitors, &handler); }
    void setHandler(Handler h) override { handler = std::move(h); }

private:
    FakeDesktop& desktop;
    Handler handler;
};

void settle()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

// A focused widget of the application: it keeps count of the key presses that reach it.
class KeySink : public QWidget {
public:
    int received = 0;

protected:
    void keyPressEvent(QKeyEvent* event) override
    {
        ++received;
        event->accept();
    }
};

// A key press inside the application, as the platform delivers it. True if the widget got it.
bool typeInto(KeySink& field, int key, Qt::KeyboardModifiers modifiers, uint16_t keyCode, const QString& text)
{
    const int before = field.received;
    QKeyEvent shortcut(QEvent::ShortcutOverride, key, modifiers, keyCode, 0, 0, text);
    shortcut.ignore();
    QCoreApplication::sendEvent(&field, &shortcut);
    QKeyEvent press(QEvent::KeyPress, key, modifiers, keyCode, 0, 0, text);
    QCoreApplication::sendEvent(&field, &press);
    return field.received > before;
}

class GlobalHotkeysTest : public ::testing::Test {
protected:
    GlobalHotkeysTest()
        : hotkeys([this]() -> std::unique_ptr<GlobalKeyMonitor> {
            if (desktop.refuse) return nullptr;
            ++desktop.made;
            return std::make_unique<FakeMonitor>(desktop);
        })
    {
        hotkeys.onSaveHotkey = [this] { ++saves; };
        hotkeys.onArmHotkey = [this] { ++arms; };
        hotkeys.applicationHasKeyboardFocus = [this] { return focused; };
    }

    FakeDesktop desktop;
    GlobalHotkeys hotkeys;
    bool focused = false;
    int saves = 0;
    int arms = 0;
};

} // namespace

TEST_F(GlobalHotkeysTest, TheGlobalMonitorFiresOnTheMainLoopForAnExactMatch)
{
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());
    EXPECT_EQ(desktop.made, 1);
    desktop.press(27, ctrl | shift);
    EXPECT_EQ(saves, 0) << "placed on the main loop, not run inside the monitor";
    settle();
    EXPECT_EQ(saves, 1);

    desktop.press(27, ctrl);
    desktop.press(27, ctrl | shift | alt);
    desktop.press(26, ctrl | shift);
    settle();
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(arms, 0);

    // While the application has the keyboard the local monitor hears the key: one press, one toggle.
    focused = true;
    desktop.press(27, ctrl | shift);
    settle();
    EXPECT_EQ(saves, 1);
}

TEST_F(GlobalHotkeysTest, BindingsThatAreOffOrOnKeyCodeZeroHaveNoMonitors)
{
    KeySink field;
    hotkeys.registerHotkey(HotkeyBinding { false, 38, QStringLiteral("a"), ctrl });
    hotkeys.registerArmHotkey(HotkeyBinding { true, 0, QStringLiteral("a"), ctrl });
    EXPECT_EQ(desktop.made, 0);
    EXPECT_TRUE(typeInto(field, Qt::Key_A, Qt::NoModifier, 38, QStringLiteral("a")));
    desktop.press(0, ctrl);
    settle();
    EXPECT_EQ(saves + arms, 0);
}

TEST_F(GlobalHotkeysTest, RegisteringReplacesBothMonitors)
{
    KeySink field;
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());
    hotkeys.registerHotkey(HotkeyBinding { true, 38, QStringLiteral("a"), alt });
    settle(); // the old local monitor goes away on the loop
    EXPECT_EQ(desktop.made, 2);
    EXPECT_EQ(desktop.monitors.size(), 1u);

    desktop.press(27, ctrl | shift);
    EXPECT_TRUE(typeInto(field, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier, 27, QStringLiteral("R")));
    settle();
    EXPECT_EQ(saves, 0);

    desktop.press(38, alt);
    EXPECT_FALSE(typeInto(field, Qt::Key_A, Qt::AltModifier, 38, QStringLiteral("a")));
    settle();
    EXPECT_EQ(saves, 2);

    hotkeys.unregisterHotkey();
    settle();
    EXPECT_TRUE(desktop.monitors.empty());
    EXPECT_TRUE(typeInto(field, Qt::Key_A, Qt::AltModifier, 38, QStringLiteral("a")));
}

TEST_F(GlobalHotkeysTest, TheLocalMonitorTakesTheKeyFromTheFocusedWidget)
{
    KeySink field;
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());
    EXPECT_FALSE(typeInto(field, Qt::Key_R, Qt::ControlModifier | Qt::ShiftModifier, 27, QStringLiteral("R")));
    EXPECT_EQ(saves, 1) << "fired once, at once";
    // The same key with other modifiers passes.
    EXPECT_TRUE(typeInto(field, Qt::Key_R, Qt::ShiftModifier, 27, QStringLiteral("R")));
    EXPECT_TRUE(typeInto(field, Qt::Key_R, Qt::NoModifier, 27, QStringLiteral("r")));
    EXPECT_EQ(saves, 1);

    // Without a global monitor the hotkey still works inside the application.
    desktop.refuse = true;
    hotkeys.registerArmHotkey(HotkeyBinding { true, 38, QStringLiteral("a"), alt });
    EXPECT_FALSE(typeInto(field, Qt::Key_A, Qt::AltModifier, 38, QStringLiteral("a")));
    EXPECT_EQ(arms, 1);
}

TEST_F(GlobalHotkeysTest, TheSameCombinationOnBothHotkeysFiresBoth)
{
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());
    hotkeys.registerArmHotkey(HotkeyBinding::defaultSave());
    desktop.press(27, ctrl | shift);
    settle();
    EXPECT_EQ(saves, 1);
    EXPECT_EQ(arms, 1);
}

TEST_F(GlobalHotkeysTest, FollowsTheSettings)
{
    QTemporaryDir dir;
    AppSettings settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("v.conf")), QSettings::IniFormat));
    hotkeys.followSettings(&settings);
    EXPECT_EQ(desktop.made, 1) << "the save hotkey once; the arm hotkey is off";

    settings.setArmHotkey(HotkeyBinding { true, 38, QStringLiteral("a"), alt });
    settings.setSaveHotkey(HotkeyBinding { true, 39, QStringLiteral("s"), ctrl });
    settle();
    EXPECT_EQ(desktop.made, 3);
    EXPECT_EQ(desktop.monitors.size(), 2u);
    desktop.press(27, ctrl | shift);
    desktop.press(38, alt);
    desktop.press(39, ctrl);
    settle();
    EXPECT_EQ(arms, 1);
    EXPECT_EQ(saves, 1);

    settings.setSaveHotkey(HotkeyBinding::defaultArm());
    settle();
    EXPECT_EQ(desktop.monitors.size(), 1u);
}
