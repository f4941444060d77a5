#include "IndexedFrames.h"

#include <QPainter>

#include <cmath>
#include <cstring>

namespace IndexedFrames {

namespace {

QRect cell(int bit, int width, int height)
{
    const int col = bit % 4, row = bit / 4;
    return QRect(col * width / 4, row * height / 4, width / 4, height / 4);
}

} // namespace

QImage picture(int index, int width, int height, bool grain)
{
    QImage image(width, height, QImage::Format_RGB32);
    {
        QPainter painter(&image);
        for (int bit = 0; bit < bits; ++bit)
            painter.fillRect(cell(bit, width, height), (index >> bit) & 1 ? Qt::white : Qt::black);
    }
    if (grain) {
        uint32_t state = 2654435761u * uint32_t(index + 1);
        for (int y = 0; y < height; ++y) {
            auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
            for (int x = 0; x < width; ++x) {
                state = state * 1664525u + 1013904223u;
                const int n = int(state >> 26); // 0..63
                const int v = qGray(line[x]) == 0 ? n : 255 - n;
                line[x] = qRgb(v, v, v);
            }
        }
    }
    return image;
}

VideoFrame frame(int index, int width, int height, const MediaTime& pts, bool grain)
{
    return { picture(index, width, height, grain), pts };
}

int indexFromLuma(const uint8_t* luma, int stride, int width, int height)
{
    int index = 0;
    for (int bit = 0; bit < bits; ++bit) {
        const QRect r = cell(bit, width, height);
        // The middle half of the block, away from edges that compression blurs.
        long sum = 0, count = 0;
        for (int y = r.top() + r.height() / 4; y < r.bottom() - r.height() / 4; ++y)
            for (int x = r.left() + r.width() / 4; x < r.right() - r.width() / 4; ++x, ++count)
                sum += luma[y * stride + x];
        const long mean = count ? sum / count : 0;
        if (mean > 160)
            index |= 1 << bit;
        else if (mean > 96)
            return -1;
    }
    return index;
}

AudioBuffer tone(AudioBuffer::SampleFormat format, int sampleRate, int channels, int frames, const MediaTime& pts,
    double frequency, double amplitude)
{
    AudioBuffer b;
    b.format = format;
    b.sampleRate = sampleRate;
    b.channels = channels;
    b.pts = pts;
    b.data.resize(frames * channels * b.bytesPerSample());
    // The phase follows the clock, so consecutive buffers join without a click.
    const double t0 = pts.seconds();
    for (int i = 0; i < frames; ++i) {
        const double v = amplitude * std::sin(2 * M_PI * frequency * (t0 + double(i) / sampleRate));
        for (int c = 0; c < channels; ++c) {
            const int at = i * channels + c;
            if (format == AudioBuffer::SampleFormat::Float32) {
                const float f = float(v);
                std::memcpy(b.data.data() + at * 4, &f, 4);
            } else {
                const int16_t s = int16_t(std::lround(v * 32767));
                std::memcpy(b.data.data() + at * 2, &s, 2);
            }
        }
    }
    return b;
}

} // namespace IndexedFrames
