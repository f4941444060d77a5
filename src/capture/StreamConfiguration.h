#pragma once

#include "core/MediaTime.h"

#include <QRectF>

#include <memory>
#include <optional>

class OwnWindows;

// How a stream delivers: always 32-bit BGRA frames on the monotonic clock, scaled to fit
// width x height with the aspect kept (the rest letterboxed in black).
struct StreamConfiguration {
    int width = 1920; // even, at least 2
    int height = 1080; // even, at least 2
    // Frames come no closer together than this.
    MediaTime minimumFrameInterval = MediaTime(1, 60);
    bool showsCursor = true;
    // How many delivered frames may wait for the consumer before newer ones are dropped.
    int queueDepth = 8;
    // Only for display filters: the part of the display to capture, in its own points.
    std::optional<QRectF> sourceRect;
    bool capturesAudio = false;
    // This program's windows, whose repaints are not changes of a display's picture unless
    // something else's window lies over them. May be null.
    std::shared_ptr<const OwnWindows> ownWindows;
};
