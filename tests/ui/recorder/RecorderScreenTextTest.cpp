#include "ui/recorder/FormatElapsed.h"
#include "ui/recorder/PermissionError.h"
#include "ui/recorder/PreviewMappedBox.h"

#include <gtest/gtest.h>

#include <limits>

TEST(RecorderScreenText, TheTimerReadsMinutesToTheHundredthThenHours)
{
    EXPECT_EQ(formatElapsed(75.5), QStringLiteral("01:15.50"));
    EXPECT_EQ(formatElapsed(0.07), QStringLiteral("00:00.07"));
    // Cut off, never rounded up into the next second or the hour.
    EXPECT_EQ(formatElapsed(3599.999), QStringLiteral("59:59.99"));
    EXPECT_EQ(formatElapsed(3600), QStringLiteral("1:00:00"));
    EXPECT_EQ(formatElapsed(37230.75), QStringLiteral("10:20:30"));
    // A clock that went wrong shows nothing rather than garbage.
    EXPECT_EQ(formatElapsed(-2.5), QStringLiteral("00:00.00"));
    EXPECT_EQ(formatElapsed(std::numeric_limits<double>::quiet_NaN()), QStringLiteral("00:00.00"));
}

TEST(RecorderScreenText, TheWatchedAreaFollowsTheLetterboxedPicture)
{
    // The second of two 1920x1080 displays in a square box: 400x225, 87.5 down from the top.
    const std::optional<QRectF> wide
        = previewMappedBox(QRectF(1920 + 960, 540, 192, 108), QSizeF(1920, 1080), QPointF(1920, 0), QSizeF(400, 400));
    ASSERT_TRUE(wide);
    EXPECT_EQ(*wide, QRectF(200, 200, 40, 22.5));
    // A tall window in a wide box: 100 of bars on the left.
    const std::optional<QRectF> tall
        = previewMappedBox(QRectF(10, 20, 500, 500), QSizeF(1000, 1000), QPointF(10, 20), QSizeF(400, 200));
    ASSERT_TRUE(tall);
    EXPECT_EQ(*tall, QRectF(100, 0, 100, 100));
    // No source size, or no box: nothing to draw.
    EXPECT_FALSE(previewMappedBox(QRectF(0, 0, 50, 50), QSizeF(0, 1080), QPointF(), QSizeF(400, 300)));
    EXPECT_FALSE(previewMappedBox(QRectF(0, 0, 50, 50), QSizeF(1920, 1080), QPointF(), QSizeF(400, 0)));
}

TEST(RecorderScreenText, OnlyAPermissionOrADeclinedRequestCountsAsARefusal)
{
    const QString refused = QStringLiteral("Capture failed: PERMISSION denied by the screen cast portal");
    EXPECT_EQ(permissionError(refused), refused);
    EXPECT_EQ(permissionError(QStringLiteral("The user Declined to share the screen")),
        QStringLiteral("The user Declined to share the screen"));
    EXPECT_FALSE(permissionError(QStringLiteral("Capture failed: cannot open display :9")));
    EXPECT_FALSE(permissionError(std::nullopt));
}
