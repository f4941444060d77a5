#include "app/session/SourceGeometry.h"

#include "core/ScreenLayout.h"

#include <gtest/gtest.h>

using namespace SourceGeometry;

TEST(SourceGeometry, ManualAndDiscordOnlyScaleDownByHeight)
{
    EXPECT_EQ(scaledOutputSize(2560, 1440, QualityMode::manual, Resolution::res1080), QSize(1920, 1080));
    EXPECT_EQ(scaledOutputSize(3024, 1964, QualityMode::manual, Resolution::res1080), QSize(1662, 1080));
    EXPECT_EQ(scaledOutputSize(1920, 1080, QualityMode::manual, Resolution::res1080), QSize(1920, 1080));
    EXPECT_EQ(scaledOutputSize(1280, 720, QualityMode::manual, Resolution::res1080), QSize(1280, 720));
    EXPECT_EQ(scaledOutputSize(1921, 1081, QualityMode::manual, Resolution::res1080), QSize(1918, 1080));
    EXPECT_EQ(scaledOutputSize(5120, 2880, QualityMode::manual, Resolution::native), QSize(5120, 2880));
    EXPECT_EQ(scaledOutputSize(1920, 1200, QualityMode::discord, Resolution::res720), QSize(1728, 1080));
    EXPECT_EQ(scaledOutputSize(1280, 720, QualityMode::discord, Resolution::res720), QSize(1280, 720));
}

TEST(SourceGeometry, SocialAndStudioUpscaleByAtMostOneAndAHalfAndCapTheLongEdge)
{
    EXPECT_EQ(scaledOutputSize(1280, 720, QualityMode::social, Resolution::res720), QSize(1920, 1080));
    EXPECT_EQ(scaledOutputSize(2560, 1440, QualityMode::social, Resolution::res720), QSize(2560, 1440));
    EXPECT_EQ(scaledOutputSize(3840, 2160, QualityMode::social, Resolution::res720), QSize(2560, 1440));
    EXPECT_EQ(scaledOutputSize(1920, 1080, QualityMode::studio, Resolution::res720), QSize(2880, 1620));
    EXPECT_EQ(scaledOutputSize(3840, 2160, QualityMode::studio, Resolution::res720), QSize(3840, 2160));
    EXPECT_EQ(scaledOutputSize(5120, 2880, QualityMode::studio, Resolution::res720), QSize(3840, 2160));
    // The factor is the height ratio when it is under 1.5; the resolution setting plays no part.
    EXPECT_EQ(scaledOutputSize(1000, 1200, QualityMode::social, Resolution::res2160), QSize(1200, 1440));
    // A portrait window taller than the target is left alone while its long edge fits.
    EXPECT_EQ(scaledOutputSize(1000, 2000, QualityMode::social, Resolution::res720), QSize(1000, 2000));
    EXPECT_EQ(scaledOutputSize(1000, 3000, QualityMode::social, Resolution::res720), QSize(852, 2560));
}

TEST(SourceGeometry, TinySizesBecomeEvenAndAtLeastTwo)
{
    for (QualityMode mode : allCases<QualityMode>())
        EXPECT_EQ(scaledOutputSize(1, 1, mode, Resolution::res1080).width() % 2, 0) << rawValue(mode).toStdString();
    EXPECT_EQ(scaledOutputSize(3, 5, QualityMode::manual, Resolution::native), QSize(2, 4));
    EXPECT_EQ(scaledOutputSize(0, 0, QualityMode::manual, Resolution::native), QSize(2, 2));
}

TEST(SourceGeometry, DescriptorParsing)
{
    EXPECT_EQ(parseDisplayDescriptor(QStringLiteral("display:1")), 1u);
    EXPECT_EQ(parseDisplayDescriptor(QStringLiteral("display:+5")), 5u);
    EXPECT_EQ(parseDisplayDescriptor(QStringLiteral("display:4294967295")), 4294967295u);
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:+")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:4294967296")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:99999999999999999999")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:-1")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display: 1")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("display:1x")));
    EXPECT_FALSE(parseDisplayDescriptor(QStringLiteral("Display:1")));

    const auto w = parseWindowDescriptor(QStringLiteral("window:org.kde.app@@Chart: BTC@@USD / 1m"));
    ASSERT_TRUE(w);
    EXPECT_EQ(w->bundleIdentifier, QStringLiteral("org.kde.app"));
    EXPECT_EQ(w->title, QStringLiteral("Chart: BTC@@USD / 1m"));
    EXPECT_EQ(
        windowDescriptor(w->bundleIdentifier, w->title), QStringLiteral("window:org.kde.app@@Chart: BTC@@USD / 1m"));
    const auto empty = parseWindowDescriptor(QStringLiteral("window:@@"));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->bundleIdentifier.isEmpty());
    EXPECT_TRUE(empty->title.isEmpty());
    EXPECT_FALSE(parseWindowDescriptor(QStringLiteral("window:no-separator")));
    EXPECT_FALSE(parseWindowDescriptor(QStringLiteral("region:1")));
}

TEST(SourceGeometry, FilenameLabel)
{
    EXPECT_EQ(sanitizeFilenameLabel(QStringLiteral("  Chart: BTC/USD  ")), QStringLiteral("Chart- BTC-USD"));
    EXPECT_EQ(sanitizeFilenameLabel(QString(60, u'x')).size(), 48);
    // 48 characters as a person counts them: an emoji at the cut is kept whole.
    const QString emojis = QString(47, u'a') + QStringLiteral("😀😀");
    EXPECT_EQ(sanitizeFilenameLabel(emojis), QString(47, u'a') + QStringLiteral("😀"));
    EXPECT_EQ(sanitizeFilenameLabel(QString()), QString());
}

TEST(ScreenLayout, LookupsAndFlipsThroughTheMainHeight)
{
    ScreenLayout layout;
    layout.screens = { { 10, QRectF(0, 0, 1440, 900), 2.0, QStringLiteral("Built-in") },
        { 20, QRectF(1440, -200, 1920, 1080), 1.0, QStringLiteral("DP-1") } };
    EXPECT_EQ(layout.mainScreen()->displayID, 10u);
    EXPECT_EQ(layout.screenForDisplay(20)->name, QStringLiteral("DP-1"));
    EXPECT_EQ(layout.screenForDisplay(30), nullptr);
    EXPECT_EQ(layout.screenContaining(QPointF(1500, -100))->displayID, 20u);
    EXPECT_EQ(layout.screenContaining(QPointF(-5, 5)), nullptr);
    // A rect at the top of the main screen sits at its bottom in screen space, and flips back.
    const QRectF top(100, 0, 200, 100);
    EXPECT_EQ(layout.globalToScreenSpace(top), QRectF(100, 800, 200, 100));
    EXPECT_EQ(layout.screenSpaceToGlobal(layout.globalToScreenSpace(top)), top);
    // Above the main screen in global space is above its top in screen space too.
    EXPECT_EQ(layout.globalToScreenSpace(QRectF(1440, -200, 1920, 1080)), QRectF(1440, 20, 1920, 1080));
    EXPECT_EQ(layout.screens[0].backingRect(QRectF(0, 0, 1440, 900)), QRectF(0, 0, 2880, 1800));
}

TEST(SourceGeometry, RegionDescriptorOfTheCommandLine)
{
    const auto r = parseRegionDescriptor(QStringLiteral("region:1:10,20.5,300,200"));
    ASSERT_TRUE(r);
    EXPECT_EQ(r->displayID, 1u);
    EXPECT_EQ(r->localPointRect, QRectF(10, 20.5, 300, 200));
    EXPECT_FALSE(parseRegionDescriptor(QStringLiteral("region:1:10,20,300")));
    EXPECT_FALSE(parseRegionDescriptor(QStringLiteral("region:1:10,20,0,200")));
    EXPECT_FALSE(parseRegionDescriptor(QStringLiteral("region:x:10,20,30,40")));
    EXPECT_FALSE(parseRegionDescriptor(QStringLiteral("region:10,20,30,40")));
}
