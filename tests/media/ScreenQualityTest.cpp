#include "media/ScreenQuality.h"

#include "media/VideoEncoder.h"

#include <QPainter>

#include <gtest/gtest.h>

namespace {

// A desktop-like picture: a gradient, some lines of text and a box that moves.
QImage desktopPicture(QSize size, int index)
{
    QImage image(size, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient gradient(0, 0, size.width(), size.height());
    gradient.setColorAt(0, QColor(30, 40, 70));
    gradient.setColorAt(1, QColor(200, 180, 120));
    p.fillRect(image.rect(), gradient);
    p.setPen(Qt::white);
    for (int line = 0; line < 8; ++line)
        p.drawText(10, 20 + line * 18, QStringLiteral("EURUSD 1.0%1 bid %2 ask").arg(index / 15 * 7 + line).arg(line * 13));
    p.fillRect(QRect(20 + index * 3, 120, 60, 40), QColor(220, 40, 40));
    return image;
}

// The bytes the encoder makes of the same 60 pictures at the given ceiling.
int64_t encodedBytes(int64_t bitRate)
{
    VideoEncoder::Settings settings;
    settings.width = 320;
    settings.height = 180;
    settings.averageBitRate = bitRate;
    settings.expectedFPS = 30;
    settings.timeBase = { 1, 30 };
    QString error;
    const std::unique_ptr<VideoEncoder> encoder = VideoEncoder::open(QStringLiteral("libx265"), settings, &error);
    EXPECT_NE(encoder, nullptr) << error.toStdString();
    if (!encoder) return 0;
    int64_t bytes = 0;
    const PacketSink sink = [&](AVPacket* packet) {
        if (packet) bytes += packet->size;
        return 0;
    };
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(encoder->send(desktopPicture(QSize(320, 180), i), i, i % 30 == 0, sink), 0);
    EXPECT_EQ(encoder->finish(sink), 0);
    return bytes;
}

} // namespace

// The bit rate is a ceiling that a quiet screen does not fill, yet a higher one still buys a
// crisper picture: three times the bits a pixel at the same size and rate makes a clearly larger
// stream even where the lower ceiling was never reached.
TEST(ScreenQuality, AHigherBitRateBuysAFinerPictureThoughNeitherCeilingIsReached)
{
    // The default's bits a pixel at this size, and three times that.
    const int64_t usual = int64_t(20e6 * (320.0 * 180.0) / (1920.0 * 1080.0));
    const int64_t low = encodedBytes(usual);
    const int64_t high = encodedBytes(3 * usual);
    ASSERT_GT(low, 0);
    // Two seconds under the lower ceiling: the quality, not the cap, decided its size.
    EXPECT_LT(low * 8 / 2, usual);
    EXPECT_GT(high, low * 3 / 2) << "low " << low << " high " << high;
    // And the same bits a pixel decide the same quality at any size and rate.
    EXPECT_DOUBLE_EQ(ScreenQuality::crf(20'000'000, 1920, 1080, 30), ScreenQuality::crf(80'000'000, 3840, 2160, 30));
}
