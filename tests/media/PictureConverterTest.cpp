#include "media/PictureConverter.h"

#include <gtest/gtest.h>

#include <random>

namespace {

QImage noise(QSize size, uint32_t seed)
{
    QImage image(size, QImage::Format_RGB32);
    std::mt19937 random(seed);
    for (int y = 0; y < size.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < size.width(); ++x)
            line[x] = 0xff000000u | (random() & 0xffffffu);
    }
    return image;
}

FramePtr frameOf(AVPixelFormat format, QSize size)
{
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = size.width();
    frame->height = size.height();
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}

// Every sample of the visible picture, plane by plane.
std::vector<uint8_t> samples(const AVFrame* frame)
{
    std::vector<uint8_t> out;
    const bool nv12 = frame->format == AV_PIX_FMT_NV12;
    const int planes = nv12 ? 2 : 3;
    for (int p = 0; p < planes; ++p) {
        const int rows = p == 0 ? frame->height : frame->height / 2;
        const int bytes = p == 0 || nv12 ? frame->width : frame->width / 2;
        for (int y = 0; y < rows; ++y)
            out.insert(out.end(), frame->data[p] + size_t(y) * frame->linesize[p],
                frame->data[p] + size_t(y) * frame->linesize[p] + bytes);
    }
    return out;
}

TEST(PictureConverter, ConvertingOnlyWhatChangedGivesTheSamePictureAsConvertingItAll)
{
    const QSize size(320, 180);
    // Rectangles on odd pixels, one pixel wide, and at the right and bottom edges: their 2x2 chroma
    // neighbours must be converted with them.
    const std::vector<QRect> changed { QRect(3, 5, 17, 9), QRect(101, 0, 1, 180), QRect(300, 171, 20, 9),
        QRect(0, 77, 320, 1), QRect(150, 90, 1, 1) };
    for (const AVPixelFormat format : { AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12 }) {
        const QImage before = noise(size, 1);
        QImage after = before.copy();
        const QImage painted = noise(size, 2);
        for (const QRect& r : changed)
            for (int y = r.top(); y <= r.bottom(); ++y)
                for (int x = r.left(); x <= r.right(); ++x)
                    after.setPixel(x, y, painted.pixel(x, y));

        PictureConverter partial;
        FramePtr kept = frameOf(format, size);
        ASSERT_EQ(partial.convert(before, kept.get()), 0);
        ASSERT_EQ(partial.convert(after, kept.get(), &changed), 0);
        EXPECT_LT(partial.lastConvertedShare(), 0.1);

        PictureConverter whole;
        FramePtr reference = frameOf(format, size);
        ASSERT_EQ(whole.convert(after, reference.get()), 0);
        EXPECT_EQ(samples(kept.get()), samples(reference.get())) << "format " << int(format);

        // Nothing changed: nothing is converted, and the picture stays.
        const std::vector<QRect> none;
        ASSERT_EQ(partial.convert(after, kept.get(), &none), 0);
        EXPECT_EQ(partial.lastConvertedShare(), 0.0);
        EXPECT_EQ(samples(kept.get()), samples(reference.get()));
    }
}

TEST(PictureConverter, WithoutThePictureBeforeItInTheTargetEverythingIsConverted)
{
    const QSize size(64, 32);
    const QImage first = noise(size, 3);
    const QImage second = noise(size, 4);
    const std::vector<QRect> small { QRect(0, 0, 2, 2) };
    PictureConverter converter;
    // A first picture, and one into another target: the changes are about a picture that target
    // never held.
    FramePtr a = frameOf(AV_PIX_FMT_YUV420P, size);
    FramePtr b = frameOf(AV_PIX_FMT_YUV420P, size);
    ASSERT_EQ(converter.convert(first, a.get(), &small), 0);
    EXPECT_EQ(converter.lastConvertedShare(), 1.0);
    ASSERT_EQ(converter.convert(second, b.get(), &small), 0);
    EXPECT_EQ(converter.lastConvertedShare(), 1.0);
    // A target shared with someone else (an encoder holding on to it) is copied before it is
    // written: still the picture before, but it is converted whole all the same.
    ASSERT_EQ(converter.convert(first, a.get()), 0);
    AVFrame* other = av_frame_clone(a.get());
    ASSERT_EQ(converter.convert(second, a.get(), &small), 0);
    EXPECT_EQ(converter.lastConvertedShare(), 1.0);
    PictureConverter whole;
    FramePtr reference = frameOf(AV_PIX_FMT_YUV420P, size);
    ASSERT_EQ(whole.convert(second, reference.get()), 0);
    EXPECT_EQ(samples(a.get()), samples(reference.get()));
    av_frame_free(&other);
}

TEST(PictureConverter, BothWaysConvertWithTheMatrixTheStreamIsTaggedWith)
{
    // BT.601, limited range (the encoder tags SMPTE 170M): red is Y 82, Cb 90, Cr 240; white is Y 235.
    for (const QSize source : { QSize(64, 32), QSize(128, 64) }) {
        QImage picture(source, QImage::Format_RGB32);
        picture.fill(QColor(255, 0, 0));
        const QRect white(0, 0, source.width() / 2, source.height());
        for (int y = 0; y < source.height(); ++y)
            for (int x = 0; x < white.width(); ++x)
                picture.setPixel(x, y, qRgb(255, 255, 255));
        PictureConverter converter;
        FramePtr frame = frameOf(AV_PIX_FMT_YUV420P, QSize(64, 32)); // the second picture is scaled
        ASSERT_EQ(converter.convert(picture, frame.get()), 0);
        const AVFrame* f = frame.get();
        EXPECT_NEAR(f->data[0][16 * f->linesize[0] + 8], 235, 1) << source.width();
        EXPECT_NEAR(f->data[0][16 * f->linesize[0] + 56], 82, 1) << source.width();
        EXPECT_NEAR(f->data[1][8 * f->linesize[1] + 28], 90, 1) << source.width();
        EXPECT_NEAR(f->data[2][8 * f->linesize[2] + 28], 240, 1) << source.width();
    }
}

} // namespace
