#pragma once

#include "IndexedFrames.h"
#include "recorder/SegmentWriter.h"
#include "recorder/SegmentedRecorder.h"
#include "support/EventLoop.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <functional>
#include <limits>
#include <memory>

// A recorder at a small picture size whose writers are paced instead of thinned, so that a test can
// feed frames faster than real time and still find every one of them in the files.
inline std::unique_ptr<SegmentedRecorder> pacedRecorder(
    int fps, double bufferSeconds, int width = 256, int height = 144)
{
    auto recorder = std::make_unique<SegmentedRecorder>();
    // Time moves with the frames the test feeds, and only with them.
    recorder->setClock([] { return MediaTime::invalid(); });
    recorder->setFramesWaitingLimit(std::numeric_limits<int>::max());
    recorder->setAudioBuffersWaitingLimit(std::numeric_limits<int>::max());
    recorder->setWriterFactory([](const QString& path, std::shared_ptr<SegmentEncoder> encoder) {
        auto writer = std::make_unique<SegmentWriter>(path, encoder);
        writer->setExpectsMediaDataInRealTime(false);
        return writer;
    });
    recorder->configure(width, height, 1.0, bufferSeconds, fps);
    return recorder;
}

// The ring has run everything handed to it, and the main thread has seen the results.
inline void settle(SegmentedRecorder& recorder)
{
    recorder.waitUntilIdle();
    QCoreApplication::processEvents();
}

// Time on a 600-tick clock, exact for every frame rate the tests use.
inline MediaTime ticks600(int64_t value)
{
    return MediaTime(value, 600);
}
