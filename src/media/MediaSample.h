#pragma once

#include "core/MediaTime.h"

#include <QByteArray>
#include <QImage>
#include <QPoint>

// One captured video frame: 32-bit BGRA in memory (QImage::Format_RGB32, Format_ARGB32 or
// Format_ARGB32_Premultiplied on this little-endian platform), stamped on the capture clock.
struct VideoFrame {
    QImage image;
    MediaTime pts;
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
