#include "app/hotkeys/GlobalHotkeys.h"
#include "platform/x11/X11HotkeyMonitor.h"
#include "support/EventLoop.h"
#include "support/TestDesktop.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <functional>

namespace {

// A program on the test display that reports on stdout; what it said so far is kept.
struct Client {
    QProcess process;
    QString said;

    bool waitFor(const QString& text, int timeoutMs = 5000)
    {
        QElapsedTimer elapsed;
        elapsed.start();
        while (!said.contains(text) && elapsed.elapsed() < timeoutMs) {
            process.waitForReadyRead(50);
            said += QString::fromUtf8(process.readAllStandardOutput());
        }
        return said.contains(text);
    }
    ~Client()
    {
        process.kill();
        process.waitForFinished(2000);
    }
};

class HotkeyX11Test : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString error = desktop.start({ .width = 640, .height = 480, .audio = false });
        ASSERT_EQ(error, QString());
    }

    // Keys typed on the display through XTEST, as a keyboard would.
    void key(const QString& combination)
    {
        ASSERT_EQ(desktop.run(QStringLiteral("xdotool"), { QStringLiteral("key"), combination }), 0)
            << combination.toStdString();
    }

    void focus(const QString& windowID)
    {
        ASSERT_EQ(desktop.run(
                      QStringLiteral("xdotool"), { QStringLiteral("windowfocus"), QStringLiteral("--sync"), windowID }),
            0);
    }

    TestDesktop desktop;
};

} // namespace

TEST_F(HotkeyX11Test, TheGlobalMonitorObservesWithoutTakingTheKey)
{
    // Another program has the keyboard focus.
    Client xev;
    xev.process.start(QStringLiteral("xev"), { QStringLiteral("-event"), QStringLiteral("keyboard") });
    // xev writes nothing until the first event, so its window is found by name.
    QString found;
    ASSERT_EQ(desktop.run(QStringLiteral("xdotool"),
                  { QStringLiteral("search"), QStringLiteral("--sync"), QStringLiteral("--name"),
                      QStringLiteral("^Event Tester$") },
                  &found),
        0);
    focus(found.split(QLatin1Char('\n')).first().trimmed());

    int saves = 0;
    int arms = 0;
    GlobalHotkeys hotkeys([]() -> std::unique_ptr<GlobalKeyMonitor> { return X11HotkeyMonitor::create(); });
    hotkeys.onSaveHotkey = [&] { ++saves; };
    hotkeys.onArmHotkey = [&] { ++arms; };
    hotkeys.registerHotkey(HotkeyBinding::defaultSave());
    // Super+A: the "Control" bit is the Super key here.
    hotkeys.registerArmHotkey(HotkeyBinding { true, 38, QStringLiteral("a"), HotkeyBinding::controlBit });

    key(QStringLiteral("ctrl+shift+r"));
    EXPECT_TRUE(spinUntil([&] { return saves == 1; }));
    // The key went on to the focused program as if nobody had listened.
    EXPECT_TRUE(xev.waitFor(QStringLiteral("keycode 27 (keysym 0x52, R)"))) << xev.said.toStdString();

    // Other modifiers, fewer, none: no match. The save that follows proves they were all read.
    key(QStringLiteral("ctrl+r"));
    key(QStringLiteral("ctrl+shift+alt+r"));
    key(QStringLiteral("shift+r"));
    key(QStringLiteral("r"));
    key(QStringLiteral("super+r"));
    key(QStringLiteral("ctrl+shift+r"));
    EXPECT_TRUE(spinUntil([&] { return saves >= 2; }));
    EXPECT_EQ(saves, 2);
    EXPECT_EQ(arms, 0);

    key(QStringLiteral("super+a"));
    EXPECT_TRUE(spinUntil([&] { return arms == 1; }));
    EXPECT_EQ(saves, 2);

    // Unregistered: nothing hears the key any more.
    hotkeys.unregisterHotkey();
    key(QStringLiteral("ctrl+shift+r"));
    key(QStringLiteral("super+a"));
    EXPECT_TRUE(spinUntil([&] { return arms == 2; }));
    EXPECT_EQ(saves, 2);
}

TEST_F(HotkeyX11Test, InsideTheApplicationTheLocalMonitorTakesTheKeyOnce)
{
    Client probe;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    probe.process.setProcessEnvironment(env);
    probe.process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    probe.process.start(QStringLiteral(HOTKEY_PROBE), QStringList());
    ASSERT_TRUE(probe.waitFor(QStringLiteral("ready "))) << probe.said.toStdString();
    const auto match = QRegularExpression(QStringLiteral("ready (\\d+)")).match(probe.said);
    ASSERT_TRUE(match.hasMatch());
    focus(match.captured(1));
    ASSERT_TRUE(probe.waitFor(QStringLiteral("focused"))) << probe.said.toStdString();

    ASSERT_EQ(desktop.run(QStringLiteral("xdotool"), { QStringLiteral("type"), QStringLiteral("ab") }), 0);
    key(QStringLiteral("ctrl+shift+r"));
    ASSERT_EQ(desktop.run(QStringLiteral("xdotool"), { QStringLiteral("type"), QStringLiteral("c") }), 0);

    // Ask until every key has been handled: "c" came after the hotkey.
    const bool typed = spinUntil(
        [&] {
            probe.process.write("text\n");
            return probe.waitFor(QStringLiteral("text:abc"), 200);
        },
        5000);
    EXPECT_TRUE(typed) << probe.said.toStdString();
    // One press, one action: the global monitor left the key to the local one, the field never
    // saw it and the menu shortcut never fired.
    EXPECT_EQ(probe.said.count(QStringLiteral("save")), 1) << probe.said.toStdString();
    EXPECT_FALSE(probe.said.contains(QStringLiteral("menu")));
    EXPECT_FALSE(probe.said.contains(QStringLiteral("abR")));
}
