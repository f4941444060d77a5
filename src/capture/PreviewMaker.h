#pragma once

#include <QImage>
#include <QSize>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

// What the window wants of previews: whether any at all (not while it is minimised or covered),
// and the size in pixels at which it shows them. The engine writes it on the main thread; the
// stream's capture thread reads it for every frame.
class PreviewRequest {
public:
    // Until a size is given, previews are bounded by PreviewMaker::maxHeight alone.
    static constexpr QSize anySize { 1 << 20, 1 << 20 };

    void setEnabled(bool value) { enabled.store(value, std::memory_order_relaxed); }
    bool isEnabled() const { return enabled.load(std::memory_order_relaxed); }
    // An empty size wants no previews: nothing shows them.
    void setSize(QSize size);
    QSize size() const;

private:
    static uint64_t pack(QSize size);

    std::atomic<bool> enabled = true;
    std::atomic<uint64_t> packedSize = pack(anySize);
};

// Makes the previews of one stream on its capture thread: no more than 15 a second, each fitted
// once into the size the window shows it at, so that the main thread only puts it on the screen
// and no picture is made that nobody shows.
//
// The scaling is cheap on purpose (the window may stay open all day): the picture is halved by
// averaging 2x2 blocks while it is at least twice the size wanted, then brought to the exact size
// by picking the nearest pixel. Fine detail is averaged rather than skipped over by the large
// steps, and the last, less than twofold, step costs next to nothing; a filtering scaler of the
// same size costs several times as much (bench/README.md).
//
// Capture thread, one maker to a stream.
class PreviewMaker {
public:
    // A preview is at most this high and comes at most this often.
    static constexpr int maxHeight = 720;
    static constexpr int64_t intervalNs = 1'000'000'000 / 15;

    PreviewMaker(std::shared_ptr<const PreviewRequest> request, std::function<int64_t()> clock);
    ~PreviewMaker();
    PreviewMaker(const PreviewMaker&) = delete;
    PreviewMaker& operator=(const PreviewMaker&) = delete;

    // The preview of this picture, or none when no preview is wanted or due. A picture that fits
    // already is handed back as it is, without a copy.
    std::optional<QImage> make(const QImage& picture);

    // The size of the preview of a `source` picture shown in `bound`: the aspect kept, never
    // enlarged, at most maxHeight high. Empty when either is empty.
    static QSize fittedSize(QSize source, QSize bound);
    // A 32-bit picture (RGB32 or ARGB32) at `size`, made as above; opaque RGB32.
    static QImage downscale(const QImage& picture, QSize size);

private:
    std::shared_ptr<const PreviewRequest> request;
    std::function<int64_t()> clock;
    std::optional<int64_t> lastAt;
};
