#include "monitor/IncrementalSignature.h"

#include "monitor/ScreenPictures.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using AreaSignature::downsampleToSignature;

TEST(IncrementalSignature, EveryPictureGetsItsOwnSignature)
{
    const QImage first = ScreenPictures::tradingScreen(QSize(400, 240));
    QImage changed = first.copy();
    {
        QPainter painter(&changed);
        painter.fillRect(0, 100, 400, 3, Qt::white); // whole rows
        painter.fillRect(390, 7, 1, 1, Qt::white); // one pixel of one row
    }
    const QImage later = ScreenPictures::tradingScreen(QSize(400, 240), 5);
    const QImage smaller = ScreenPictures::tradingScreen(QSize(300, 200));
    const QImage narrower = first.copy(0, 0, 300, 240); // each row starts as the first's

    // Still, changed, back, narrower, another, another size, and one picture handed over twice.
    IncrementalSignature signatures;
    for (const QImage& picture : { first, first, changed, changed, first, narrower, later, smaller, first, first })
        ASSERT_EQ(signatures.signatureOf(picture), downsampleToSignature(picture));

    // A buffer that its owner writes in place between two pictures: same memory, new pixels.
    std::vector<uchar> buffer(size_t(first.sizeInBytes()));
    std::memcpy(buffer.data(), first.constBits(), buffer.size());
    const QImage onBuffer(buffer.data(), first.width(), first.height(), first.bytesPerLine(), QImage::Format_RGB32);
    EXPECT_EQ(signatures.signatureOf(onBuffer), downsampleToSignature(first));
    std::memcpy(buffer.data(), changed.constBits(), buffer.size());
    EXPECT_EQ(signatures.signatureOf(onBuffer), downsampleToSignature(changed));
    EXPECT_FALSE(signatures.signatureOf(QImage()));
}
