#pragma once

#include "capture/CaptureEngine.h"
#include "support/EventLoop.h"

#include <QColor>
#include <QDataStream>
#include <QFile>
#include <QImage>

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

// Looking at captured pixels, for the capture integration tests.
namespace CaptureTestSupport {

inline void refresh(CaptureEngine& engine)
{
    bool done = false;
    engine.refreshAvailableContent([&done] { done = true; });
    ASSERT_TRUE(spinUntil([&done] { return done; }, 5000));
}

// Every frame the engine hands on, in order.
struct FrameLog {
    std::vector<VideoFrame> frames;
    explicit FrameLog(CaptureEngine& engine)
    {
        // A copy of each picture: the stream has only so many, and a log that held them all would
        // stop it.
        engine.frameSink = [this](const VideoFrame& frame) {
            VideoFrame kept = frame;
            kept.image = frame.image.copy();
            frames.push_back(kept);
        };
    }
    size_t count() const { return frames.size(); }
    const QImage& last() const { return frames.back().image; }
    // Waits for a frame after the first `after` frames that satisfies `test`.
    bool waitFor(size_t after, const std::function<bool(const QImage&)>& test, int timeoutMs = 3000)
    {
        return spinUntil(
            [&] {
                for (size_t i = after; i < frames.size(); ++i)
                    if (test(frames[i].image)) return true;
                return false;
            },
            timeoutMs);
    }
};

inline bool near(const QImage& image, int x, int y, const QColor& expected, int tolerance = 12)
{
    if (!image.valid(x, y)) return false;
    const QColor got = QColor::fromRgb(image.pixel(x, y));
    return std::abs(got.red() - expected.red()) <= tolerance && std::abs(got.green() - expected.green()) <= tolerance
        && std::abs(got.blue() - expected.blue()) <= tolerance;
}

inline std::string describe(const QImage& image, int x, int y)
{
    if (!image.valid(x, y)) return "outside the image";
    return QColor::fromRgb(image.pixel(x, y)).name().toStdString();
}

// A 16-bit stereo WAV file of a sine tone.
inline QString writeTone(const QString& path, int rate, double seconds, double frequency, double amplitude)
{
    const int frames = int(rate * seconds);
    QByteArray pcm;
    pcm.reserve(frames * 4);
    for (int i = 0; i < frames; ++i) {
        const auto sample = int16_t(std::lround(amplitude * 32767 * std::sin(2 * M_PI * frequency * i / rate)));
        for (int c = 0; c < 2; ++c) {
            pcm.append(char(sample & 0xff));
            pcm.append(char((sample >> 8) & 0xff));
        }
    }
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return {};
    QDataStream out(&file);
    out.setByteOrder(QDataStream::LittleEndian);
    out.writeRawData("RIFF", 4);
    out << quint32(36 + pcm.size());
    out.writeRawData("WAVEfmt ", 8);
    out << quint32(16) << quint16(1) << quint16(2) << quint32(rate) << quint32(rate * 4) << quint16(4) << quint16(16);
    out.writeRawData("data", 4);
    out << quint32(pcm.size());
    out.writeRawData(pcm.constData(), int(pcm.size()));
    return path;
}

} // namespace CaptureTestSupport

#define EXPECT_COLOUR(image, x, y, colour)                                                                             \
    EXPECT_TRUE(CaptureTestSupport::near((image), (x), (y), (colour)))                                                 \
        << "at " << (x) << "," << (y) << ": " << CaptureTestSupport::describe((image), (x), (y))
