#include "capture/FrameScaler.h"

#include <QColor>

#include <gtest/gtest.h>

namespace {

// A BGRX picture as the X server delivers it: the fourth byte 0, left half red, right half blue.
QImage serverPicture(int w, int h)
{
    QImage image(w, h, QImage::Format_RGB32);
    for (int y = 0; y < h; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(image.scanLine(y));
        for (int x = 0; x < w; ++x)
            row[x] = x < w / 2 ? 0x00ff0000u : 0x000000ffu;
    }
    return image;
}

void expectColour(const QImage& image, int x, int y, QRgb expected)
{
    const QRgb got = image.pixel(x, y);
    EXPECT_NEAR(qRed(got), qRed(expected), 4) << x << "," << y;
    EXPECT_NEAR(qGreen(got), qGreen(expected), 4) << x << "," << y;
    EXPECT_NEAR(qBlue(got), qBlue(expected), 4) << x << "," << y;
}

} // namespace

TEST(FrameScaler, FitRectKeepsTheAspect)
{
    EXPECT_EQ(FrameScaler::fitRect(QSize(1920, 1080), QSize(1920, 1080)), QRect(0, 0, 1920, 1080));
    EXPECT_EQ(FrameScaler::fitRect(QSize(3840, 2160), QSize(1280, 720)), QRect(0, 0, 1280, 720));
    // Wider than the output: bars above and below.
    EXPECT_EQ(FrameScaler::fitRect(QSize(1920, 1080), QSize(1024, 768)), QRect(0, 96, 1024, 576));
    // Taller: bars left and right, the left edge on a multiple of four.
    EXPECT_EQ(FrameScaler::fitRect(QSize(300, 600), QSize(640, 360)), QRect(228, 0, 180, 360));
    EXPECT_EQ(FrameScaler::fitRect(QSize(0, 10), QSize(640, 360)), QRect());
}

TEST(FrameScaler, ScalesIntoTheOutputWithBlackBarsAndOpaqueAlpha)
{
    FrameScaler scaler;
    const QImage source = serverPicture(400, 200);

    // Same size: the picture itself, not a copy; it still reads as opaque.
    QImage same = scaler.fit(source, QSize(400, 200));
    EXPECT_EQ(same.constBits(), source.constBits());
    EXPECT_EQ(same.pixel(10, 10), 0xffff0000u);
    EXPECT_EQ(same.pixel(390, 190), 0xff0000ffu);

    // Same size as the target but not the output: bars on both sides, the picture in the middle.
    QImage barred = scaler.fit(source, QSize(400, 300));
    expectColour(barred, 200, 20, qRgb(0, 0, 0));
    expectColour(barred, 10, 150, qRgb(255, 0, 0));
    expectColour(barred, 390, 150, qRgb(0, 0, 255));

    // Half size into a square: 200x100 in the middle, black above and below.
    QImage square = scaler.fit(source, QSize(200, 200));
    ASSERT_EQ(square.size(), QSize(200, 200));
    expectColour(square, 100, 10, qRgb(0, 0, 0));
    expectColour(square, 100, 190, qRgb(0, 0, 0));
    expectColour(square, 40, 100, qRgb(255, 0, 0));
    expectColour(square, 160, 100, qRgb(0, 0, 255));
    EXPECT_EQ(qAlpha(square.pixel(40, 100)), 255);

    // Up, and with another size than before (the scaling context is made again).
    QImage larger = scaler.fit(source, QSize(800, 400));
    expectColour(larger, 100, 200, qRgb(255, 0, 0));
    expectColour(larger, 700, 200, qRgb(0, 0, 255));
    EXPECT_EQ(qAlpha(larger.pixel(700, 200)), 255);

    EXPECT_TRUE(scaler.fit(QImage(), QSize(10, 10)).isNull());
}
