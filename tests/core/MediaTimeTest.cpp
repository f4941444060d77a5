#include "core/MediaTime.h"

#include <gtest/gtest.h>

TEST(MediaTime, SixSecondsBetweenTimesOfDifferentTimescales)
{
    // A segment that started on a 600-tick clock and a frame stamped in nanoseconds.
    const MediaTime start(600 * 10, 600); // 10.0 s
    const MediaTime frame(16'000'000'000LL, 1'000'000'000); // 16.0 s
    const MediaTime elapsed = frame - start;
    EXPECT_TRUE(elapsed.isNumeric());
    EXPECT_EQ(elapsed, MediaTime::fromSeconds(6.0, 1));
    EXPECT_DOUBLE_EQ(elapsed.seconds(), 6.0);
    EXPECT_FALSE(elapsed < MediaTime(6, 1));
}

TEST(MediaTime, ExactlySixteenSecondsVersusOneTickMore)
{
    const MediaTime limit = MediaTime::fromSeconds(16.0, 1);
    const MediaTime exactly(16'000'000'000LL, 1'000'000'000);
    const MediaTime oneTickMore(16'000'000'001LL, 1'000'000'000);
    EXPECT_EQ(exactly, limit);
    EXPECT_FALSE(exactly > limit);
    EXPECT_TRUE(oneTickMore > limit);
    // The difference keeps the single nanosecond, though seconds() cannot show it.
    const MediaTime diff = oneTickMore - limit;
    EXPECT_EQ(diff.value, 1);
    EXPECT_EQ(diff.timescale, 1'000'000'000);
}

TEST(MediaTime, ComparisonIsExactWhereDoublesWouldLie)
{
    // 1/3 s on a 3-tick clock against 333333333 ns: not equal, and ordered correctly.
    const MediaTime third(1, 3);
    const MediaTime ns(333'333'333, 1'000'000'000);
    EXPECT_TRUE(ns < third);
    EXPECT_NE(ns, third);
    // Large values that would overflow a 64-bit cross-multiplication.
    const MediaTime bigA(INT64_MAX / 2, 1'000'000'000);
    const MediaTime bigB(INT64_MAX / 2 + 1, 1'000'000'000);
    EXPECT_TRUE(bigA < bigB);
    EXPECT_TRUE(MediaTime(INT64_MAX / 3, 999'999'937) < MediaTime(INT64_MAX / 3 + 1, 999'999'937));
}

TEST(MediaTime, InvalidAndInfiniteTimes)
{
    const MediaTime invalid;
    EXPECT_FALSE(invalid.isValid());
    EXPECT_FALSE(invalid.isNumeric());
    EXPECT_FALSE((invalid - MediaTime(1, 1)).isValid());
    EXPECT_TRUE(invalid < MediaTime::negativeInfinity());
    EXPECT_TRUE(MediaTime::negativeInfinity() < MediaTime(-1'000'000, 1));
    EXPECT_TRUE(MediaTime(1'000'000, 1) < MediaTime::positiveInfinity());
    EXPECT_TRUE(MediaTime::positiveInfinity().isValid());
    EXPECT_FALSE(MediaTime::positiveInfinity().isNumeric());
    EXPECT_TRUE(MediaTime::zero().isNumeric());
    EXPECT_EQ(MediaTime(0, 1), MediaTime(0, 1'000'000'000));
}

TEST(MediaTime, FromSecondsAndConversionRoundToNearest)
{
    EXPECT_EQ(MediaTime::fromSeconds(1.0 / 60.0, 600).value, 10);
    EXPECT_EQ(MediaTime::fromSeconds(-2.5, 2).value, -5);
    EXPECT_EQ(MediaTime(1, 3).convertScale(1000).value, 333);
    EXPECT_EQ(MediaTime(2, 3).convertScale(1000).value, 667);
    EXPECT_EQ(MediaTime(-2, 3).convertScale(1000).value, -667);
    EXPECT_FALSE(MediaTime::fromSeconds(1.0, 0).isValid());
    // Sum across timescales stays exact when the common scale fits.
    const MediaTime sum = MediaTime(1, 3) + MediaTime(1, 6);
    EXPECT_EQ(sum, MediaTime(1, 2));
}
