#include "platform/Platform.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(Platform, TheFlagWinsOverTheSessionAndOnlyAWaylandSessionLeavesX11)
{
    using B = Platform::Backend;
    EXPECT_EQ(Platform::chooseBackend(std::nullopt, "wayland"), B::wayland);
    EXPECT_EQ(Platform::chooseBackend(std::nullopt, "Wayland\n"), B::wayland);
    // X11 sessions, sessions that say nothing (a bare Xvfb, ssh -X) and other kinds (tty, mir) stay on X11.
    for (const char* session : { "x11", "", "tty", "mir" })
        EXPECT_EQ(Platform::chooseBackend(std::nullopt, session), B::x11) << session;
    EXPECT_EQ(Platform::chooseBackend(B::x11, "wayland"), B::x11);
    EXPECT_EQ(Platform::chooseBackend(B::wayland, "x11"), B::wayland);

    // A Wayland session without PipeWire (here: a runtime folder without its socket) says what it
    // lacks instead of capturing black.
    QTemporaryDir runtime;
    const QByteArray savedRuntime = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", runtime.path().toUtf8());
    qunsetenv("PIPEWIRE_RUNTIME_DIR");
    qunsetenv("PIPEWIRE_REMOTE");
    Platform wayland(B::wayland);
    EXPECT_EQ(wayland.unavailableReason(),
        QStringLiteral("Screen capture on Wayland needs xdg-desktop-portal and PipeWire running"));
    const CaptureBackend::ContentResult listing = wayland.screen()->shareableContent();
    EXPECT_FALSE(listing.content.has_value());
    EXPECT_EQ(listing.error, wayland.unavailableReason());
    EXPECT_EQ(wayland.globalKeyMonitor(), nullptr);
    EXPECT_FALSE(wayland.hasOverlayDisplay());
    qputenv("XDG_RUNTIME_DIR", savedRuntime);
}
