#pragma once

#include "media/FFmpegHandles.h"

#include <QImage>
#include <QRect>

#include <vector>

// Turns 32-bit BGRA pictures into the 4:2:0 picture an encoder takes (planar YUV420P or NV12),
// BT.601 limited range. At the same size it converts with libyuv, and it can convert only the parts
// of a picture that changed into the picture it converted last, which it keeps: a window moving on a
// still desktop costs the window, not the screen. Pictures of another size are scaled (libswscale).
// Not thread-safe: one owner thread.
class PictureConverter {
public:
    PictureConverter() = default;

    // Converts `image` into `target` (its format YUV420P or NV12, its size the output size).
    // `changed`: when given, the only pixels of `image` that differ from the picture converted last
    // into this same `target`; the rest of `target` is kept as it is. It is ignored (everything is
    // converted) when there is no such last picture: the first one, another size, or a target that
    // had to be copied to be written. Returns 0 or a negative FFmpeg error.
    int convert(const QImage& image, AVFrame* target, const std::vector<QRect>* changed = nullptr);

    // The pixels converted by the last call, as a share of the whole picture (0..1).
    double lastConvertedShare() const { return convertedShare; }

private:
    int scale(const QImage& image, AVFrame* target);
    void convertRect(const QImage& image, AVFrame* target, const QRect& rect);

    SwsContextPtr scaler;
    QSize scalerInput;
    QImage::Format scalerFormat = QImage::Format_Invalid;
    // What `target` holds: a picture of this size converted by this object into these planes.
    const uint8_t* keptPlane = nullptr;
    QSize keptSize;
    double convertedShare = 0;
};
