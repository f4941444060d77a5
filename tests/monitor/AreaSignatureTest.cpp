#include "monitor/AreaSignature.h"

#include "monitor/PlainSignature.h"
#include "monitor/ScreenPictures.h"

#include <QPainter>

#include <gtest/gtest.h>

#include <cmath>

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

// The largest difference between two signatures in any one cell.
int largestCellDifference(const QByteArray& a, const QByteArray& b)
{
    int largest = 0;
    for (int i = 0; i < byteCount; ++i)
        largest = std::max(largest, std::abs(int(uint8_t(a[i])) - int(uint8_t(b[i]))));
    return largest;
}

// A pixel's linear-light luminance in bytes, before rounding, computed as exactly as long double
// allows.
long double exactByte(QRgb rgb)
{
    const auto linear = [](int code) {
        const long double c = code / 255.0L;
        return c <= 0.04045L ? c / 12.92L : std::pow((c + 0.055L) / 1.055L, 2.4L);
    };
    return 255.0L * (0.2126L * linear(qRed(rgb)) + 0.7152L * linear(qGreen(rgb)) + 0.0722L * linear(qBlue(rgb)));
}

} // namespace

// Signatures stored in the settings were made by the floating-point version; integer sums must
// not make a still screen look changed.
TEST(AreaSignature, GivesTheBytesOfTheFloatingPointVersion)
{
    const std::vector<QImage> pictures { ScreenPictures::tradingScreen(QSize(1000, 600)),
        ScreenPictures::tradingScreen(QSize(333, 217), 3), ScreenPictures::text(QSize(1000, 600), 13),
        ScreenPictures::text(QSize(517, 95), 9), ScreenPictures::noise(QSize(1000, 600), 1),
        ScreenPictures::noise(QSize(37, 23), 2), ScreenPictures::noise(QSize(15, 17), 3),
        ScreenPictures::noise(QSize(5, 3), 4), ScreenPictures::noise(QSize(1, 300), 5) };
    for (const QImage& picture : pictures)
        EXPECT_EQ(*downsampleToSignature(picture), *PlainSignature::downsample(picture))
            << picture.width() << "x" << picture.height();

    // Pure black and white pixels at sizes where cells cover whole pixels give averages of exactly
    // n + 0.5: they round up here, and either way in floating point. That is one step in a few
    // cells, against thresholds of 900 and more.
    for (const QSize size : { QSize(32, 82), QSize(199, 32), QSize(64, 196) }) {
        const QImage picture = ScreenPictures::noise(size, 6, true);
        const QByteArray integer = *downsampleToSignature(picture);
        const QByteArray plain = *PlainSignature::downsample(picture);
        EXPECT_LE(largestCellDifference(integer, plain), 1);
        EXPECT_LE(difference(integer, plain), 30.0);
    }

    // Colours one by one, one pixel a cell: where the two disagree, the exact value is so close to
    // a half that floating point could not tell which way it goes. A step of 17 visits a million
    // colours across every value of every channel.
    QImage cells(gridSize, gridSize, QImage::Format_RGB32);
    for (uint32_t first = 0; first < (1u << 24); first += byteCount * 17) {
        for (uint32_t i = 0; i < uint32_t(byteCount); ++i)
            cells.setPixel(int(i % gridSize), int(i / gridSize), 0xff000000u | ((first + i * 17) & 0xffffffu));
        const QByteArray integer = *downsampleToSignature(cells);
        const QByteArray plain = *PlainSignature::downsample(cells);
        for (int i = 0; i < byteCount; ++i) {
            if (integer[i] == plain[i]) continue;
            const QRgb rgb = cells.pixel(i % gridSize, i / gridSize);
            const long double exact = exactByte(rgb);
            ASSERT_LT(std::abs(exact - std::floor(exact) - 0.5L), 1e-5L)
                << std::hex << rgb << ": " << std::dec << int(uint8_t(integer[i])) << " against "
                << int(uint8_t(plain[i]));
            ASSERT_EQ(integer[i], char(std::lround(double(exact))));
        }
    }
}

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

    // RGB32 has no alpha: whatever a grab leaves in the fourth byte changes nothing.
    const QImage screen = ScreenPictures::tradingScreen(QSize(160, 90));
    QImage undefinedFourthByte = screen;
    for (int y = 0; y < screen.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(undefinedFourthByte.scanLine(y));
        for (int x = 0; x < screen.width(); ++x)
            line[x] = (line[x] & 0xffffffu) | (uint32_t((x * 7 + y) & 0xff) << 24);
    }
    EXPECT_EQ(*downsampleToSignature(undefinedFourthByte), *downsampleToSignature(screen));
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
