#include "platform/Platform.h"

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

    // Until the portal's capture is in, a Wayland session says what to do instead of capturing black.
    Platform wayland(B::wayland);
    EXPECT_TRUE(wayland.unavailableReason().contains(QStringLiteral("--backend x11")));
    const CaptureBackend::ContentResult listing = wayland.screen()->shareableContent();
    EXPECT_FALSE(listing.content.has_value());
    EXPECT_EQ(listing.error, wayland.unavailableReason());
    EXPECT_EQ(wayland.globalKeyMonitor(), nullptr);
    EXPECT_FALSE(wayland.hasOverlayDisplay());
}
