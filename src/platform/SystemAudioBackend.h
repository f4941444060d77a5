#pragma once

#include "media/MediaSample.h"
#include "platform/CaptureStream.h"

#include <QString>

#include <functional>
#include <memory>

// The sound the system plays, as a capture source (on PulseAudio: the monitor of the default sink).
// Implementation: PulseSystemAudio (src/platform/pulse).
class SystemAudioBackend {
public:
    struct Start {
        std::unique_ptr<CaptureStream> stream;
        QString error; // the reason, when there is no stream
    };

    virtual ~SystemAudioBackend() = default;

    // Main thread. Delivers buffers in the source's own sample format, stamped on the monotonic
    // capture clock with increasing times, to `onBuffer` on the audio thread.
    virtual Start start(std::function<void(const AudioBuffer&)> onBuffer) = 0;
};
