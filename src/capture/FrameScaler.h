#pragma once

#include <QImage>
#include <QRect>
#include <QSize>

#include <memory>

struct SwsContext;

// Fits 32-bit BGRX pictures into an output size: scaled with the aspect kept, centred, the rest
// black, alpha opaque (QImage::Format_RGB32). The scaling context is kept between frames of the
// same size, so one scaler belongs to one thread (a capture thread).
class FrameScaler {
public:
    FrameScaler();
    ~FrameScaler();
    FrameScaler(const FrameScaler&) = delete;
    FrameScaler& operator=(const FrameScaler&) = delete;

    // Where a picture of `source` size lands inside `output`: as large as fits, the aspect kept.
    // The left edge is a multiple of 4 pixels so that rows start aligned for the scaler.
    static QRect fitRect(QSize source, QSize output);

    // `pixels` holds `source` pixels in rows of `stride` bytes. A null image if either size is empty.
    QImage fit(const uchar* pixels, int stride, QSize source, QSize output);

private:
    struct SwsFree {
        void operator()(SwsContext* context) const;
    };
    std::unique_ptr<SwsContext, SwsFree> context;
};
