#include "DesktopTestMain.h"

#include "support/SessionBus.h"
#include "support/TestDesktop.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>

#include <gtest/gtest.h>

#include <cstdio>

// The interface tests run on a private Xvfb, with a home of their own so that no setting of the
// user's is read or written; the window's tests also with a window manager, as a user's desktop
// has (minimising needs one), and those that need them with a sound server. The desktop must exist before the
// application connects to it, so these binaries bring this main.

namespace {
TestDesktop* desktop = nullptr;
SessionBus* bus = nullptr;
} // namespace

TestDesktop* testDesktop()
{
    return desktop;
}

SessionBus* testSessionBus()
{
    return bus;
}

bool showUnderTheWindowManager(QWidget* window)
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (QTest::qWaitForWindowExposed(window, 2000)) return true;
        window->hide();
        window->show();
    }
    return false;
}

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QTemporaryDir home;
    TestDesktop x;
    SessionBus sessionBus;
    // Listing the tests (ctest's discovery) needs no display.
    if (!GTEST_FLAG_GET(list_tests)) {
        qputenv("HOME", home.path().toUtf8());
        qputenv("XDG_CONFIG_HOME", home.filePath(QStringLiteral("config")).toUtf8());
        qputenv("TMPDIR", home.path().toUtf8());
#ifdef VELOTAPE_TEST_WINDOW_MANAGER
        const bool windowManager = true;
#else
        const bool windowManager = false;
#endif
#ifdef VELOTAPE_TEST_AUDIO
        const bool audio = true;
#else
        const bool audio = false;
#endif
        // A run that stands for a remote display, where the server can't share memory with us.
        const bool sharedMemory = !qEnvironmentVariableIsSet("VELOTAPE_TEST_NO_SHARED_MEMORY");
        const QString error = x.start({ .width = 1400,
            .height = 900,
            .audio = audio,
            .windowManager = windowManager,
            .sharedMemory = sharedMemory });
        if (!error.isEmpty()) {
            std::fprintf(stderr, "no test display: %s\n", qPrintable(error));
            return 1;
        }
        desktop = &x;
#ifdef VELOTAPE_TEST_SESSION_BUS
        // Qt connects to the session bus once, at its first use: the private one must be there first.
        if (const QString busError = sessionBus.start(); !busError.isEmpty()) {
            std::fprintf(stderr, "no test session bus: %s\n", qPrintable(busError));
            return 1;
        }
        bus = &sessionBus;
#endif
        qputenv("QT_QPA_PLATFORM", "xcb");
    } else {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationName(QStringLiteral("Velotape"));
    QCoreApplication::setApplicationVersion(QStringLiteral("0.1"));
    // The tests close windows of their own; the application outlives them.
    app.setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
