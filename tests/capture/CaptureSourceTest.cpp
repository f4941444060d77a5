#include "capture/CaptureSource.h"

#include <QSet>

#include <gtest/gtest.h>

namespace {

CaptureDisplay display(uint32_t id)
{
    CaptureDisplay d;
    d.displayID = id;
    d.width = 1920;
    d.height = 1080;
    d.frame = QRect(0, 0, 1920, 1080);
    return d;
}

} // namespace

TEST(CaptureSource, IdsHaveTheirThreeForms)
{
    CaptureWindow window;
    window.windowID = 4711;
    EXPECT_EQ(CaptureSource::display(display(69733378)).id(), QStringLiteral("display-69733378"));
    EXPECT_EQ(CaptureSource::window(window).id(), QStringLiteral("window-4711"));
    EXPECT_EQ(CaptureSource::region(display(2), QRectF(10.4, 20.9, 300.7, 200.2), 600, 400).id(),
        QStringLiteral("region-2-10-20-300x200"));
    // Cut towards zero, not down: a rectangle reaching left of the display.
    EXPECT_EQ(CaptureSource::region(display(2), QRectF(-10.7, 5, 100, 50), 100, 50).id(),
        QStringLiteral("region-2--10-5-100x50"));
}

TEST(CaptureSource, EqualExactlyWhenIdsAreEqual)
{
    const CaptureSource a = CaptureSource::region(display(1), QRectF(10.4, 10, 100, 100), 200, 200);
    const CaptureSource b = CaptureSource::region(display(1), QRectF(10.2, 10, 100, 100), 50, 50);
    EXPECT_EQ(a, b);
    EXPECT_EQ(qHash(a), qHash(b));
    EXPECT_NE(a, CaptureSource::region(display(1), QRectF(11, 10, 100, 100), 200, 200));
    EXPECT_NE(a, CaptureSource::region(display(3), QRectF(10, 10, 100, 100), 200, 200));

    // A window that moved or was renamed since it was listed is still the same source.
    CaptureWindow listed;
    listed.windowID = 9;
    listed.frame = QRectF(0, 0, 100, 100);
    listed.title = QStringLiteral("Before");
    CaptureWindow moved = listed;
    moved.frame = QRectF(300, 200, 640, 480);
    moved.title = QStringLiteral("After");
    EXPECT_EQ(CaptureSource::window(listed), CaptureSource::window(moved));
    EXPECT_EQ(CaptureSource::window(moved).capturedWindow().frame, QRectF(300, 200, 640, 480));

    // Different kinds never meet, even with the same number.
    CaptureWindow seven;
    seven.windowID = 7;
    EXPECT_NE(CaptureSource::display(display(7)), CaptureSource::window(seven));

    QSet<CaptureSource> set { a, b, CaptureSource::window(listed), CaptureSource::window(moved) };
    EXPECT_EQ(set.size(), 2);
}
