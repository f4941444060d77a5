#include "capture/FrameScaler.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

void FrameScaler::SwsFree::operator()(SwsContext* c) const
{
    sws_freeContext(c);
}

FrameScaler::FrameScaler() = default;
FrameScaler::~FrameScaler() = default;

QRect FrameScaler::fitRect(QSize source, QSize output)
{
    if (source.isEmpty() || output.isEmpty()) return {};
    const double scale = std::min(double(output.width()) / source.width(), double(output.height()) / source.height());
    const int width = std::clamp(int(std::lround(source.width() * scale)), 1, output.width());
    const int height = std::clamp(int(std::lround(source.height() * scale)), 1, output.height());
    const int x = ((output.width() - width) / 2) & ~3;
    const int y = (output.height() - height) / 2;
    return QRect(x, y, width, height);
}

QImage FrameScaler::fit(const QImage& picture, QSize output)
{
    const QSize source = picture.size();
    if (source.isEmpty() || output.isEmpty()) return {};
    if (source == output) return picture;
    QImage image(output, QImage::Format_RGB32);
    if (image.isNull()) return {};
    const QRect target = fitRect(source, output);
    if (target.size() != output) image.fill(Qt::black);
    const uchar* pixels = picture.constBits();
    const int stride = int(picture.bytesPerLine());

    if (target.size() == source) {
        // Only bars to add: a copy into the middle.
        for (int y = 0; y < source.height(); ++y)
            std::memcpy(image.scanLine(target.y() + y) + size_t(target.x()) * 4, pixels + size_t(y) * stride,
                size_t(source.width()) * 4);
        return image;
    }

    // BGR0 in, BGRA out: the scaler fills the alpha it doesn't get with opaque.
    context.reset(sws_getCachedContext(context.release(), source.width(), source.height(), AV_PIX_FMT_BGR0,
        target.width(), target.height(), AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!context) return {};
    const uint8_t* srcSlice[4] = { pixels, nullptr, nullptr, nullptr };
    const int srcStride[4] = { stride, 0, 0, 0 };
    uint8_t* dst[4] = { image.scanLine(target.y()) + size_t(target.x()) * 4, nullptr, nullptr, nullptr };
    const int dstStride[4] = { int(image.bytesPerLine()), 0, 0, 0 };
    sws_scale(context.get(), srcSlice, srcStride, 0, source.height(), dst, dstStride);
    return image;
}
