#include "SampleClip.h"

#include "core/MediaTime.h"
#include "recorder/SegmentWriter.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace {

constexpr int width = 320;
constexpr int height = 200;
constexpr int fps = 10;

QImage chart(int frame, int seed)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(QColor(18, 22, 34));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QColor(40, 46, 62));
    for (int y = 20; y < height; y += 30)
        p.drawLine(0, y, width, y);
    // Candles of a walk that depends on the seed, shifting left as time passes.
    double price = 100;
    uint32_t state = uint32_t(seed) * 2654435761U + 1;
    const int shift = frame;
    for (int i = 0; i < 40 + shift; ++i) {
        state = state * 1103515245U + 12345U;
        const double step = (double((state >> 8) % 1000) / 1000.0 - 0.48) * 6;
        const double open = price;
        price += step;
        const int x = (i - shift) * 9 + 6;
        if (x < 0) continue;
        const double top = height / 2.0 - (std::max(open, price) - 100) * 2;
        const double bottom = height / 2.0 - (std::min(open, price) - 100) * 2;
        const QColor colour = price >= open ? QColor(80, 190, 130) : QColor(230, 90, 80);
        p.setPen(colour);
        p.drawLine(QPointF(x + 3, top - 4), QPointF(x + 3, bottom + 4));
        p.fillRect(QRectF(x, top, 7, std::max(1.0, bottom - top)), colour);
    }
    return image;
}

} // namespace

bool writeSampleClip(const QString& path, double seconds, int seed)
{
    SegmentWriter writer(path);
    writer.setExpectsMediaDataInRealTime(false);
    SegmentWriter::VideoSettings settings;
    settings.width = width;
    settings.height = height;
    settings.averageBitRate = 600'000;
    settings.expectedFPS = fps;
    if (!writer.addVideoInput(settings) || !writer.startWriting()) return false;
    const auto at = [](double s) { return MediaTime::fromSeconds(s, 600); };
    writer.startSession(at(0));
    const int frames = int(std::lround(seconds * fps));
    for (int i = 0; i < frames; ++i)
        writer.append(VideoFrame { chart(i, seed), at(double(i) / fps) });
    writer.endSession(at(double(frames) / fps));
    writer.markAsFinished();
    return writer.finishWriting() == SegmentWriter::Status::completed;
}
