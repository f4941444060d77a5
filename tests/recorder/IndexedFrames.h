#pragma once

#include "media/MediaSample.h"

#include <QImage>

// Synthetic pictures that carry their own index in the picture: a 4x4 grid of black and white
// blocks, one bit each, large enough to survive any bit rate the writer is given. A decoded frame
// tells which input frame it was, so a test can tell which frame came out where.
namespace IndexedFrames {

constexpr int bits = 16;

// `grain` adds per-pixel noise that keeps the encoder busy at any bit rate (real screens are not
// flat), without hiding the blocks.
QImage picture(int index, int width, int height, bool grain = false);
VideoFrame frame(int index, int width, int height, const MediaTime& pts, bool grain = false);
// Reads the index back from a decoded 8-bit luma plane; -1 when a block is neither dark nor light.
int indexFromLuma(const uint8_t* luma, int stride, int width, int height);

// `frames` samples of a sine tone, interleaved, in the given format, stamped at `pts`.
AudioBuffer tone(AudioBuffer::SampleFormat format, int sampleRate, int channels, int frames, const MediaTime& pts,
    double frequency = 440.0, double amplitude = 0.3);

} // namespace IndexedFrames
