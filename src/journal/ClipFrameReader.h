#pragma once

#include "media/FFmpegHandles.h"

#include <QElapsedTimer>
#include <QImage>
#include <QSize>
#include <QString>

#include <optional>

// One still picture of a saved clip, as a player would show it at a time: the reader seeks to the
// key frame before that time and decodes forward. A file that is damaged, half written or not an
// MP4 at all gives nothing; so does one that takes longer than a few seconds to read.
//
// Any one thread; one reader serves one file and one thread.
class ClipFrameReader {
public:
    // How long one reader may spend on its file before it gives up.
    static constexpr int timeLimitMilliseconds = 10'000;

    // Opens the file's container and its video decoder; isOpen says whether it worked.
    explicit ClipFrameReader(const QString& path);
    ClipFrameReader(const ClipFrameReader&) = delete;
    ClipFrameReader& operator=(const ClipFrameReader&) = delete;

    bool isOpen() const { return decoder != nullptr; }
    // The clip's length in seconds as its index gives it; 0 when it does not say.
    double duration() const;
    // The picture on show at `seconds` (the last frame that starts at or before it, or the first
    // frame when it lies before them all), or any frame within `tolerance` seconds of it, which
    // spares decoding up to the exact time; turned as the file asks and scaled down, aspect kept,
    // to fit `maxSize`. None when no intact frame can be had.
    std::optional<QImage> frameAt(double seconds, QSize maxSize, double tolerance);

private:
    // Whether the index points past the end of the file: a file cut off while it was written.
    bool indexRunsPastEnd() const;
    QImage toImage(const AVFrame* frame, QSize maxSize) const;
    static int interrupted(void* reader);

    QElapsedTimer clock;
    InputFormatPtr input;
    CodecContextPtr decoder;
    int videoStream = -1;
};
