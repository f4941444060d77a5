#include "app/client/CommandLine.h"

#include <gtest/gtest.h>

using Kind = Invocation::Kind;

TEST(CommandLine, RecognisesEveryFormAndRefusesTheRest)
{
    EXPECT_EQ(CommandLine::parse({}).kind, Kind::window);

    Invocation headless = CommandLine::parse({ "--headless", "--source", "window:org.app@@Chart: 1m" });
    EXPECT_EQ(headless.kind, Kind::headless);
    EXPECT_EQ(headless.source, QStringLiteral("window:org.app@@Chart: 1m"));
    EXPECT_EQ(CommandLine::parse({ "--headless", "--source=display:1" }).source, QStringLiteral("display:1"));
    EXPECT_EQ(CommandLine::parse({ "--headless", "--frobnicate" }).kind, Kind::invalid);
    // The window takes the same option.
    const Invocation window = CommandLine::parse({ "--source", "display:7" });
    EXPECT_EQ(window.kind, Kind::window);
    EXPECT_EQ(window.source, QStringLiteral("display:7"));
    EXPECT_EQ(CommandLine::parse({ "--source=display:7", "--frobnicate" }).kind, Kind::invalid);
    // The start at login: the window, hidden, on either side of the source.
    const Invocation background = CommandLine::parse({ "--source", "display:7", "--background" });
    EXPECT_EQ(background.kind, Kind::window);
    EXPECT_TRUE(background.background);
    EXPECT_EQ(background.source, QStringLiteral("display:7"));
    EXPECT_TRUE(CommandLine::parse({ "--background" }).background);
    EXPECT_FALSE(window.background);
    EXPECT_EQ(CommandLine::parse({ "--headless", "--background" }).kind, Kind::invalid);
    // Both modes take a backend in either place and either spelling; a name we have no backend for
    // is refused before anything starts.
    const Invocation onX11 = CommandLine::parse({ "--headless", "--backend", "x11", "--source", "display:1" });
    EXPECT_EQ(onX11.kind, Kind::headless);
    EXPECT_EQ(onX11.backend, QStringLiteral("x11"));
    EXPECT_EQ(onX11.source, QStringLiteral("display:1"));
    const Invocation onWayland = CommandLine::parse({ "--backend=wayland" });
    EXPECT_EQ(onWayland.kind, Kind::window);
    EXPECT_EQ(onWayland.backend, QStringLiteral("wayland"));
    EXPECT_EQ(CommandLine::parse({ "--backend", "quartz" }).kind, Kind::invalid);
    EXPECT_EQ(CommandLine::parse({ "--headless", "--backend" }).kind, Kind::invalid);

    for (const char* c : { "toggle", "start", "stop", "status", "arm", "disarm" }) {
        const Invocation i = CommandLine::parse({ c });
        EXPECT_EQ(i.kind, Kind::control) << c;
        EXPECT_EQ(i.command, QStringList { c });
    }
    EXPECT_EQ(CommandLine::parse({ "toggle", "now" }).kind, Kind::invalid);

    const Invocation area = CommandLine::parse({ "area", "10", "20.5", "300", "200" });
    EXPECT_EQ(area.kind, Kind::control);
    EXPECT_EQ(area.command, (QStringList { "area", "10", "20.5", "300", "200" }));
    EXPECT_EQ(CommandLine::parse({ "area", "10", "20", "300" }).kind, Kind::invalid);
    EXPECT_EQ(CommandLine::parse({ "area", "10", "20", "300", "wide" }).kind, Kind::invalid);

    const Invocation journal = CommandLine::parse({ "journal", "--json", "--unit", "R" });
    EXPECT_EQ(journal.kind, Kind::journal);
    EXPECT_EQ(journal.command, (QStringList { "--json", "--unit", "R" }));

    const Invocation bad = CommandLine::parse({ "record" });
    EXPECT_EQ(bad.kind, Kind::invalid);
    EXPECT_TRUE(bad.error.contains(QStringLiteral("record")));
}
