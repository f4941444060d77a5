#include "capture/PreviewMaker.h"

#include <algorithm>
#include <cmath>

void PreviewRequest::setSize(QSize size)
{
    packedSize.store(pack(size), std::memory_order_relaxed);
}

QSize PreviewRequest::size() const
{
    const uint64_t packed = packedSize.load(std::memory_order_relaxed);
    return { int(packed >> 32), int(packed & 0xffffffffu) };
}

uint64_t PreviewRequest::pack(QSize size)
{
    return uint64_t(uint32_t(std::max(0, size.width()))) << 32 | uint32_t(std::max(0, size.height()));
}

PreviewMaker::PreviewMaker(std::shared_ptr<const PreviewRequest> r, std::function<int64_t()> c)
    : request(std::move(r))
    , clock(std::move(c))
{
}

PreviewMaker::~PreviewMaker() = default;

QSize PreviewMaker::fittedSize(QSize source, QSize bound)
{
    if (source.isEmpty() || bound.isEmpty()) return {};
    const double scale = std::min({ 1.0, double(bound.width()) / source.width(),
        double(bound.height()) / source.height(), double(maxHeight) / source.height() });
    return { std::clamp(int(std::lround(source.width() * scale)), 1, source.width()),
        std::clamp(int(std::lround(source.height() * scale)), 1, source.height()) };
}

std::optional<QImage> PreviewMaker::make(const QImage& picture)
{
    if (picture.isNull() || !request->isEnabled()) return std::nullopt;
    const QSize size = fittedSize(picture.size(), request->size());
    // Nobody shows previews: none is made, and none is due the moment someone does.
    if (size.isEmpty()) return std::nullopt;
    const int64_t now = clock();
    if (lastAt && now - *lastAt < intervalNs) return std::nullopt;
    lastAt = now;
    if (size == picture.size()) return picture;
    QImage preview = downscale(picture, size);
    if (preview.isNull()) return std::nullopt;
    return preview;
}

namespace {

// The mean of four pixels, channel by channel, two channels at a time in 16-bit lanes.
inline uint32_t mean4(uint32_t a, uint32_t b, uint32_t c, uint32_t d)
{
    constexpr uint32_t lanes = 0x00ff00ffu;
    const uint32_t even = (a & lanes) + (b & lanes) + (c & lanes) + (d & lanes);
    const uint32_t odd = ((a >> 8) & lanes) + ((b >> 8) & lanes) + ((c >> 8) & lanes) + ((d >> 8) & lanes);
    return ((even >> 2) & lanes) | (((odd >> 2) & lanes) << 8) | 0xff000000u;
}

QImage halved(const QImage& picture)
{
    const int w = picture.width() / 2;
    const int h = picture.height() / 2;
    QImage out(w, h, QImage::Format_RGB32);
    if (out.isNull()) return out;
    for (int y = 0; y < h; ++y) {
        const auto* top = reinterpret_cast<const uint32_t*>(picture.constScanLine(2 * y));
        const auto* bottom = reinterpret_cast<const uint32_t*>(picture.constScanLine(2 * y + 1));
        auto* line = reinterpret_cast<uint32_t*>(out.scanLine(y));
        for (int x = 0; x < w; ++x)
            line[x] = mean4(top[2 * x], top[2 * x + 1], bottom[2 * x], bottom[2 * x + 1]);
    }
    return out;
}

} // namespace

QImage PreviewMaker::downscale(const QImage& picture, QSize size)
{
    if (picture.isNull() || size.isEmpty() || picture.depth() != 32) return {};
    QImage image = picture;
    while (image.width() >= 2 * size.width() && image.height() >= 2 * size.height())
        image = halved(image);
    if (image.size() == size) return image;
    return image.scaled(size, Qt::IgnoreAspectRatio, Qt::FastTransformation).convertToFormat(QImage::Format_RGB32);
}
