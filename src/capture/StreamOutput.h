#pragma once

#include "media/MediaSample.h"

#include <QString>

#include <functional>

// The sink of one stream. Backends hand it every sample; it drops those that carry nothing and
// passes the rest on. It holds nothing but the callbacks, which are set before the stream starts
// and never changed while it runs.
class StreamOutput {
public:
    // Called on the capture thread.
    std::function<void(const VideoFrame&)> onFrame;
    // Called on the audio thread.
    std::function<void(const AudioBuffer&)> onAudio;
    // Called once, on the capture thread, when the stream ends by itself; with the reason.
    std::function<void(const QString&)> onStop;
    // Called on the capture thread for every change of the screen that was not grabbed because
    // every picture buffer was still held downstream.
    std::function<void()> onSkipped;

    // Capture thread: a frame whose picture changed. Frames without an image or time are dropped.
    void didOutputFrame(const VideoFrame& frame) const;
    // Audio thread: drops buffers without samples or time.
    void didOutputAudio(const AudioBuffer& buffer) const;
    // Capture thread: a change of the screen was let go unseen (see onSkipped).
    void didSkipFrame() const;
    // Any thread: the stream ended by itself (its window closed, the display server went away).
    // Logged, then passed to onStop.
    void didStopWithError(const QString& error) const;
};
