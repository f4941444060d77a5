#include "support/TestDesktop.h"

#include <gtest/gtest.h>

// The harness itself: later integration tests rely on it giving a live X display and a PulseAudio
// daemon with the sink and source they expect, and on it cleaning up.
TEST(TestDesktop, StartsXAndPulseWithTheExpectedDevicesAndStopsThem)
{
    const QByteArray displayBefore = qgetenv("DISPLAY");
    QString displayName;
    {
        TestDesktop desktop;
        ASSERT_EQ(desktop.start(), QString());
        displayName = desktop.display();
        EXPECT_EQ(qgetenv("DISPLAY"), displayName.toLatin1());

        QString out;
        ASSERT_EQ(desktop.run(QStringLiteral("xdpyinfo"), {}, &out), 0);
        EXPECT_TRUE(out.contains(QStringLiteral("1280x720 pixels"))) << out.toStdString();

        ASSERT_EQ(desktop.run(QStringLiteral("pactl"),
                      { QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sources") }, &out),
            0);
        EXPECT_TRUE(out.contains(QStringLiteral("vsink.monitor"))) << out.toStdString();
        EXPECT_TRUE(out.contains(QStringLiteral("vmic"))) << out.toStdString();
        ASSERT_EQ(desktop.run(QStringLiteral("pactl"), { QStringLiteral("get-default-sink") }, &out), 0);
        EXPECT_EQ(out.trimmed(), QStringLiteral("vsink"));
    }
    // Gone after destruction: the display no longer answers and the environment is restored.
    EXPECT_EQ(qgetenv("DISPLAY"), displayBefore);
    TestDesktop probe;
    EXPECT_NE(probe.run(QStringLiteral("xdpyinfo"), { QStringLiteral("-display"), displayName }), 0);
}

TEST(TestDesktop, TwoDesktopsGetDifferentDisplays)
{
    TestDesktop a, b;
    ASSERT_EQ(a.start({ .width = 640, .height = 480, .audio = false }), QString());
    const QString first = a.display();
    ASSERT_EQ(b.start({ .width = 640, .height = 480, .audio = false }), QString());
    EXPECT_NE(first, b.display());
}
