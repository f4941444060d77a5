#pragma once

// A running capture (a screen stream or an audio source). Destroying it stops it.
class CaptureStream {
public:
    virtual ~CaptureStream() = default;

    // Main thread. Stops delivery; once it returns no callback of this stream runs again.
    // Stopping twice is harmless.
    virtual void stop() = 0;
};
