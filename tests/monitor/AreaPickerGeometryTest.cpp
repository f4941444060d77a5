#include "monitor/AreaPickerGeometry.h"

#include <gtest/gtest.h>

#include <vector>

using namespace AreaPickerGeometry;

TEST(AreaPickerGeometry, ADragBecomesAGlobalRectangleOfWholePixelsOrNothing)
{
    const QPointF second(1440, 0); // the display's origin in global space
    // Either direction of drag gives the same rectangle, moved by the display's origin.
    EXPECT_EQ(pickedRect({ 50, 40 }, { 250, 140 }, second), QRectF(1490, 40, 200, 100));
    EXPECT_EQ(pickedRect({ 250, 140 }, { 50, 40 }, second), QRectF(1490, 40, 200, 100));
    // Exactly 10 completes; 9.4 wide grows outward to 10 and completes; 9 wide cancels.
    EXPECT_EQ(pickedRect({ 0, 0 }, { 10, 10 }, {}), QRectF(0, 0, 10, 10));
    EXPECT_EQ(pickedRect({ 5, 5 }, { 14.4, 25 }, {}), QRectF(5, 5, 10, 20));
    EXPECT_EQ(pickedRect({ 5, 5 }, { 14, 25 }, {}), std::nullopt);
    EXPECT_EQ(pickedRect({ 5, 5 }, { 5, 5 }, {}), std::nullopt) << "a click is no rectangle";
    // A drag that runs off its display reaches beyond it; nothing clips it.
    EXPECT_EQ(pickedRect({ 600, 100 }, { 900, -50 }, {}), QRectF(600, -50, 300, 150));
}

TEST(AreaPickerGeometry, TheFirstResultWinsAndTheWindowsGoFirst)
{
    std::vector<QString> events;
    const auto finish = firstResultWins<std::optional<QRectF>>(
        [&](std::optional<QRectF> r) { events.push_back(r ? QStringLiteral("rect") : QStringLiteral("none")); },
        [&] { events.push_back(QStringLiteral("dismiss")); });
    finish(QRectF(0, 0, 20, 20));
    finish(std::nullopt);
    EXPECT_EQ(events, (std::vector<QString> { QStringLiteral("dismiss"), QStringLiteral("rect") }));
}

TEST(AreaPickerGeometry, EachPartOfTheScreenGetsOneWindow)
{
    const QRect left(0, 0, 700, 900);
    const QRect right(700, 0, 700, 900);
    const QRect whole(0, 0, 1400, 900);
    // The screen's own monitor spans the two; a mirror repeats the left one.
    EXPECT_EQ(pickerDisplays({ left, right, whole, left }), (std::vector<QRect> { left, right }));
    EXPECT_EQ(pickerDisplays({ whole }), (std::vector<QRect> { whole }));
}
