#include "media/PictureConverter.h"

#include <libyuv/convert_from_argb.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>

namespace {

// 4:2:0 shares one chroma sample among 2x2 pixels: a rectangle converted on its own must cover whole
// pairs of rows and columns, or its edge samples would mix old and new pixels.
QRect toEvenGrid(const QRect& rect, const QSize& size)
{
    const int left = rect.left() & ~1;
    const int top = rect.top() & ~1;
    const int right = std::min(size.width(), (rect.x() + rect.width() + 1) & ~1);
    const int bottom = std::min(size.height(), (rect.y() + rect.height() + 1) & ~1);
    return QRect(left, top, right - left, bottom - top);
}

} // namespace

int PictureConverter::convert(const QImage& image, AVFrame* target, const std::vector<QRect>* changed)
{
    const QSize size(target->width, target->height);
    if (image.size() != size) {
        keptPlane = nullptr;
        return scale(image, target);
    }
    const uint8_t* before = target->data[0];
    const int rc = av_frame_make_writable(target);
    if (rc < 0) return rc;
    // A target that was copied to be written is still the same picture; one that was given new,
    // empty planes, or a picture of another size, is not.
    const bool kept = changed && keptPlane == before && target->data[0] == before && keptSize == size;
    keptPlane = target->data[0];
    keptSize = size;
    if (!kept) {
        convertRect(image, target, QRect(QPoint(0, 0), size));
        convertedShare = 1;
        return 0;
    }
    qint64 pixels = 0;
    for (const QRect& rect : *changed) {
        const QRect even = toEvenGrid(rect & QRect(QPoint(0, 0), size), size);
        if (even.isEmpty()) continue;
        convertRect(image, target, even);
        pixels += qint64(even.width()) * even.height();
    }
    convertedShare = std::min(1.0, double(pixels) / (qint64(size.width()) * size.height()));
    return 0;
}

void PictureConverter::convertRect(const QImage& image, AVFrame* target, const QRect& rect)
{
    const uint8_t* argb = image.constBits() + size_t(rect.y()) * image.bytesPerLine() + size_t(rect.x()) * 4;
    const int argbStride = int(image.bytesPerLine());
    uint8_t* y = target->data[0] + size_t(rect.y()) * target->linesize[0] + rect.x();
    const size_t chromaRow = size_t(rect.y() / 2);
    if (target->format == AV_PIX_FMT_NV12) {
        uint8_t* uv = target->data[1] + chromaRow * target->linesize[1] + rect.x();
        libyuv::ARGBToNV12(
            argb, argbStride, y, target->linesize[0], uv, target->linesize[1], rect.width(), rect.height());
        return;
    }
    uint8_t* u = target->data[1] + chromaRow * target->linesize[1] + rect.x() / 2;
    uint8_t* v = target->data[2] + chromaRow * target->linesize[2] + rect.x() / 2;
    libyuv::ARGBToI420(argb, argbStride, y, target->linesize[0], u, target->linesize[1], v, target->linesize[2],
        rect.width(), rect.height());
}

int PictureConverter::scale(const QImage& image, AVFrame* target)
{
    const AVPixelFormat source
        = image.format() == QImage::Format_RGB32 ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_BGRA; // little-endian BGRA
    if (!scaler || scalerInput != image.size() || scalerFormat != image.format()) {
        scaler.reset(sws_getContext(image.width(), image.height(), source, target->width, target->height,
            static_cast<AVPixelFormat>(target->format), SWS_BILINEAR, nullptr, nullptr, nullptr));
        if (!scaler) return AVERROR(EINVAL);
        // The same matrix as the unscaled pictures: BT.601, limited range.
        const int* coefficients = sws_getCoefficients(SWS_CS_ITU601);
        sws_setColorspaceDetails(scaler.get(), coefficients, 1, coefficients, 0, 0, 1 << 16, 1 << 16);
        scalerInput = image.size();
        scalerFormat = image.format();
    }
    const int rc = av_frame_make_writable(target);
    if (rc < 0) return rc;
    const uint8_t* src[1] = { image.constBits() };
    const int stride[1] = { static_cast<int>(image.bytesPerLine()) };
    sws_scale(scaler.get(), src, stride, 0, image.height(), target->data, target->linesize);
    convertedShare = 1;
    return 0;
}
