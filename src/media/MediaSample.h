#pragma once

#include "core/MediaTime.h"

#include <QByteArray>
#include <QImage>
#include <QPoint>
#include <QRect>

#include <cstdint>
#include <utility>
#include <vector>

// What changed in a stream's picture since the stream's previous frame, when the stream knows it
// (the damage a desktop reports). A consumer that took the previous frame may redo only these parts.
struct FrameChanges {
    uint64_t sequence = 0; // the stream's own count of frames, from 1; 0: a picture with no history
    bool known = false; // false: anything may have changed
    std::vector<QRect> rects; // known: every pixel that differs from frame `sequence - 1` lies in these
};

// One captured video frame: 32-bit BGRA in memory (QImage::Format_RGB32, Format_ARGB32 or
// Format_ARGB32_Premultiplied on this little-endian platform), stamped on the capture clock.
struct VideoFrame {
    VideoFrame() = default;
    VideoFrame(QImage image, MediaTime pts, FrameChanges changes = {})
        : image(std::move(image))
        , pts(pts)
        , changes(std::move(changes))
    {
    }

    QImage image;
    MediaTime pts;
    FrameChanges changes;
    // Pixels that cover part of `image` in the file (the camera overlay with what lies around it),
    // top-left corner at `overlayAt`: put over the picture as the encoder converts it, so that the
    // picture itself is never copied to be drawn on. Null: nothing covers it.
    QImage overlay {};
    QPoint overlayAt {};
};

// One buffer of interleaved PCM audio, in the source's own format, stamped on the capture clock
// (the time of its first sample).
struct AudioBuffer {
    enum class SampleFormat { Float32, Int16 };

    SampleFormat format = SampleFormat::Float32;
    int sampleRate = 44100;
    int channels = 1;
    QByteArray data;
    MediaTime pts;

    int bytesPerSample() const { return format == SampleFormat::Float32 ? 4 : 2; }
    int frameCount() const { return channels > 0 ? int(data.size() / (bytesPerSample() * channels)) : 0; }
    MediaTime duration() const { return MediaTime(frameCount(), sampleRate); }
    MediaTime end() const { return pts + duration(); }
};
