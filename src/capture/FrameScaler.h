#pragma once

#include <QImage>
#include <QRect>
#include <QSize>

#include <memory>

struct SwsContext;

// Fits 32-bit BGRX pictures (QImage::Format_RGB32) into an output size: scaled with the aspect
// kept, centred, the rest black. A picture that has the output size already is handed back as it
// is, without a copy; its fourth byte may be the X server's padding, which RGB32 readers ignore.
// The scaling context is kept between frames of the same size, so one scaler belongs to one
// thread (a capture thread).
class FrameScaler {
public:
    FrameScaler();
    ~FrameScaler();
    FrameScaler(const FrameScaler&) = delete;
    FrameScaler& operator=(const FrameScaler&) = delete;

    // Where a picture of `source` size lands inside `output`: as large as fits, the aspect kept.
    // The left edge is a multiple of 4 pixels so that rows start aligned for the scaler.
    static QRect fitRect(QSize source, QSize output);

    // A null image if either size is empty.
    QImage fit(const QImage& source, QSize output);

private:
    struct SwsFree {
        void operator()(SwsContext* context) const;
    };
    std::unique_ptr<SwsContext, SwsFree> context;
};
