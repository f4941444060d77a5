#include "monitor/AreaSignature.h"

#include <QPainter>

#include <gtest/gtest.h>

using namespace AreaSignature;

namespace {

uint8_t byteAt(const QByteArray& signature, int row, int column)
{
    return static_cast<uint8_t>(signature[row * gridSize + column]);
}

QImage filled(int width, int height, QColor colour)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(colour);
    return image;
}

} // namespace

TEST(AreaSignature, UniformPicturesGiveEqualCellsAtAnySize)
{
    for (const QSize size : { QSize(256, 256), QSize(37, 23), QSize(5, 3), QSize(1, 1), QSize(1000, 7) }) {
        const auto signature = downsampleToSignature(filled(size.width(), size.height(), QColor(200, 200, 200)));
        ASSERT_TRUE(signature);
        ASSERT_EQ(signature->size(), byteCount);
        for (int i = 0; i < byteCount; ++i)
            ASSERT_EQ(static_cast<uint8_t>((*signature)[i]), static_cast<uint8_t>((*signature)[0]))
                << size.width() << "x" << size.height() << " cell " << i;
    }
    EXPECT_FALSE(downsampleToSignature(QImage()));
}

TEST(AreaSignature, CellsAreLinearLightLuminance)
{
    // sRGB 128 is about 21.6 % of white's light, not half of it.
    EXPECT_EQ(byteAt(*downsampleToSignature(filled(32, 32, QColor(128, 128, 128))), 0, 0), 55);
    EXPECT_EQ(byteAt(*downsampleToSignature(filled(32, 32, Qt::white)), 5, 5), 255);
    EXPECT_EQ(byteAt(*downsampleToSignature(filled(32, 32, Qt::black)), 5, 5), 0);
    // Rec. 709 weights: pure green is much brighter than pure blue.
    EXPECT_EQ(byteAt(*downsampleToSignature(filled(16, 16, QColor(0, 255, 0))), 0, 0), 182);
    EXPECT_EQ(byteAt(*downsampleToSignature(filled(16, 16, QColor(0, 0, 255))), 0, 0), 18);

    // A cell half black, half white holds half of white's light: 128. Averaging the sRGB codes
    // first and converting afterwards would give 55.
    QImage stripes(32, 32, QImage::Format_RGB32);
    for (int x = 0; x < 32; ++x)
        for (int y = 0; y < 32; ++y)
            stripes.setPixel(x, y, (x % 2) ? qRgb(255, 255, 255) : qRgb(0, 0, 0));
    EXPECT_EQ(byteAt(*downsampleToSignature(stripes), 3, 3), 128);
}

TEST(AreaSignature, GridIsRowMajorTopRowFirstAndStretchesThePicture)
{
    // A wide picture whose top sixteenth and left half are white.
    QImage image = filled(640, 48, Qt::black);
    QPainter painter(&image);
    painter.fillRect(0, 0, 640, 3, Qt::white);
    painter.fillRect(0, 0, 320, 48, Qt::white);
    painter.end();
    const QByteArray signature = *downsampleToSignature(image);
    for (int column = 0; column < gridSize; ++column)
        EXPECT_EQ(byteAt(signature, 0, column), 255) << column;
    for (int row = 1; row < gridSize; ++row) {
        EXPECT_EQ(byteAt(signature, row, 7), 255) << row;
        EXPECT_EQ(byteAt(signature, row, 8), 0) << row;
    }
}

TEST(AreaSignature, PicturesWithAlphaAreSeenOverBlack)
{
    QImage image(16, 16, QImage::Format_ARGB32);
    image.fill(QColor(255, 255, 255, 0));
    EXPECT_EQ(byteAt(*downsampleToSignature(image), 0, 0), 0);
    image.fill(QColor(255, 255, 255, 255));
    EXPECT_EQ(byteAt(*downsampleToSignature(image), 0, 0), 255);
}

TEST(AreaSignature, OneCellFromBlackToWhiteAddsTwoHundredFiftyFive)
{
    const QImage black = filled(160, 160, Qt::black);
    QImage oneCell = black;
    QPainter(&oneCell).fillRect(30, 50, 10, 10, Qt::white);
    const QByteArray reference = *downsampleToSignature(black);
    const QByteArray live = *downsampleToSignature(oneCell);
    EXPECT_EQ(difference(reference, reference), 0.0);
    EXPECT_EQ(difference(reference, live), 255.0);
    EXPECT_EQ(difference(live, reference), 255.0);
    EXPECT_EQ(byteAt(live, 5, 3), 255);
    EXPECT_EQ(difference(reference, *downsampleToSignature(filled(160, 160, Qt::white))), maxDifference);
}

TEST(AreaSignature, OnlyTwoHundredFiftySixBytesAreASignature)
{
    const QByteArray valid(256, '\x10');
    EXPECT_TRUE(isValid(valid));
    EXPECT_FALSE(isValid(QByteArray(255, '\x10')));
    EXPECT_FALSE(isValid(QByteArray(257, '\x10')));
    EXPECT_EQ(difference(valid, QByteArray(257, '\0')), 0.0);
    EXPECT_EQ(difference(QByteArray(256, '\0'), valid), 256.0 * 16);
}
