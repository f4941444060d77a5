#include "monitor/RegionPicking.h"

#include "monitor/AreaMonitor.h"
#include "monitor/AreaMonitorActions.h"

#include <gtest/gtest.h>

#include <vector>

using namespace RegionPicking;

namespace {

// A Retina-like main screen and a plain one to its right.
ScreenLayout twoScreens()
{
    ScreenLayout layout;
    layout.screens.push_back({ 1, QRectF(0, 0, 1440, 900), 2.0, QStringLiteral("eDP-1") });
    layout.screens.push_back({ 2, QRectF(1440, 0, 1920, 1080), 1.0, QStringLiteral("DP-1") });
    return layout;
}

class Screenshots : public AreaGrabber {
public:
    std::optional<QImage> grabRect(const QRectF& rect) override
    {
        if (failing) return std::nullopt;
        QImage image(rect.size().toSize(), QImage::Format_RGB32);
        image.fill(Qt::gray);
        return image;
    }
    std::optional<QImage> grabWindowRect(uint32_t, const QRectF& rect) override { return grabRect(rect); }
    std::optional<QRectF> windowFrame(uint32_t) override { return QRectF(100, 100, 500, 500); }
    bool failing = false;
};

} // namespace

TEST(RegionPicking, PixelSizesAreEvenAndAtLeastTwo)
{
    const std::vector<uint32_t> both { 1, 2 };
    const auto retina = std::get<PickedRegion>(pickedRegion(QRectF(10, 10, 101, 51), twoScreens(), both));
    EXPECT_EQ(retina.displayID, 1u);
    EXPECT_EQ(retina.pixelWidth, 202);
    EXPECT_EQ(retina.pixelHeight, 102);
    const auto plain = std::get<PickedRegion>(pickedRegion(QRectF(1500, 10, 101, 51), twoScreens(), both));
    EXPECT_EQ(plain.pixelWidth, 100);
    EXPECT_EQ(plain.pixelHeight, 50);
    EXPECT_EQ(selectedToast(plain), QStringLiteral("Region selected · 100×50"));

    EXPECT_EQ(evenPixelLength(0.4, 1.0), 2);
    EXPECT_EQ(evenPixelLength(1.0, 1.0), 2);
    EXPECT_EQ(evenPixelLength(2.5, 1.0), 2) << "2.5 rounds away from zero to 3, then loses its lowest bit";
    EXPECT_EQ(evenPixelLength(3.5, 1.0), 4);
    EXPECT_EQ(evenPixelLength(100.25, 2.0), 200);
    EXPECT_EQ(evenPixelLength(0.75, 2.0), 2);
}

TEST(RegionPicking, TheDisplayIsTheOneHoldingTheMiddle)
{
    const std::vector<uint32_t> both { 1, 2 };
    // Mostly on the right screen, reaching back over the left one.
    const auto across = std::get<PickedRegion>(pickedRegion(QRectF(1340, 100, 400, 200), twoScreens(), both));
    EXPECT_EQ(across.displayID, 2u);
    EXPECT_EQ(across.localRect, QRectF(-100, 100, 400, 200)) << "local to that display, even beyond it";
    EXPECT_EQ(across.pixelWidth, 400);

    // A middle exactly on the shared edge belongs to the screen to the right.
    EXPECT_EQ(std::get<PickedRegion>(pickedRegion(QRectF(1340, 0, 200, 10), twoScreens(), both)).displayID, 2u);

    // Below the shorter screen there is no display.
    const auto nowhere = pickedRegion(QRectF(100, 950, 50, 50), twoScreens(), both);
    ASSERT_TRUE(std::holds_alternative<PickFailure>(nowhere));
    EXPECT_EQ(failureMessage(std::get<PickFailure>(nowhere)),
        QStringLiteral("Couldn't identify the display for that region."));

    const std::vector<uint32_t> onlyMain { 1 };
    const auto unavailable = pickedRegion(QRectF(2000, 100, 50, 50), twoScreens(), onlyMain);
    ASSERT_TRUE(std::holds_alternative<PickFailure>(unavailable));
    EXPECT_EQ(failureMessage(std::get<PickFailure>(unavailable)),
        QStringLiteral("That display isn't available for capture."));
}

TEST(RegionPicking, PickedAreaIsWindowRelativeOnlyWhenAWindowIsCaptured)
{
    auto grabber = std::make_unique<Screenshots>();
    Screenshots* screen = grabber.get();
    AreaMonitor monitor(std::move(grabber));

    const AreaMonitorActions::WindowScope window { 9, QRectF(100, 100, 500, 500) };
    const std::vector<QRectF> display { QRectF(0, 0, 1920, 1080) };
    const auto watched = AreaMonitorActions::watchArea(monitor, QRectF(150, 120, 64, 32), window, display);
    EXPECT_TRUE(watched.captured);
    EXPECT_EQ(watched.toast, QStringLiteral("Watch area captured"));
    EXPECT_EQ(monitor.scopedWindowID(), 9u);
    EXPECT_EQ(monitor.windowLocalRect(), QRectF(50, 20, 64, 32));
    EXPECT_EQ(monitor.rect(), QRectF(150, 120, 64, 32));
    EXPECT_TRUE(monitor.referenceSignature());

    // A display or region source: the same rectangle, now plain. The rectangle didn't change, so
    // the reference stays, but the scope is gone.
    AreaMonitorActions::setPickedAreaRect(monitor, QRectF(150, 120, 64, 32), std::nullopt);
    EXPECT_FALSE(monitor.scopedWindowID());
    EXPECT_FALSE(monitor.windowLocalRect());
    EXPECT_TRUE(monitor.referenceSignature());

    // A new window-scoped area whose grab fails leaves the plain one and its reference in place.
    screen->failing = true;
    const auto failed = AreaMonitorActions::watchArea(monitor, QRectF(0, 0, 64, 32), window, display);
    EXPECT_FALSE(failed.captured);
    EXPECT_EQ(monitor.rect(), QRectF(150, 120, 64, 32));
    EXPECT_FALSE(monitor.scopedWindowID());
    EXPECT_TRUE(monitor.referenceSignature());
}

TEST(RegionPicking, ToggleSaysWhatHappened)
{
    auto grabber = std::make_unique<Screenshots>();
    Screenshots* screen = grabber.get();
    AreaMonitor monitor(std::move(grabber));
    EXPECT_EQ(AreaMonitorActions::toggle(monitor), QStringLiteral("Pick an area first."));
    monitor.setRect(QRectF(0, 0, 32, 32));
    screen->failing = true;
    EXPECT_EQ(AreaMonitorActions::toggle(monitor),
        QStringLiteral("Couldn't grab that area — the display server gave no picture of it."));
    EXPECT_FALSE(monitor.isArmed());
    screen->failing = false;
    EXPECT_EQ(AreaMonitorActions::toggle(monitor), QStringLiteral("Area monitor armed"));
    EXPECT_TRUE(monitor.isArmed());
    EXPECT_EQ(AreaMonitorActions::toggle(monitor), QStringLiteral("Area monitor disarmed"));
    EXPECT_FALSE(monitor.isArmed());
}
