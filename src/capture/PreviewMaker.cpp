#include "capture/PreviewMaker.h"

#include "capture/FrameScaler.h"

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
    , scaler(std::make_unique<FrameScaler>(FrameScaler::Quality::fast))
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
    QImage preview = scaler->fit(picture, size);
    if (preview.isNull()) return std::nullopt;
    return preview;
}
