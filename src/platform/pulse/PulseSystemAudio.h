#pragma once

#include "platform/SystemAudioBackend.h"

// System audio on PulseAudio (and PipeWire's PulseAudio server): the monitor of the default sink,
// recorded in its own sample format. When recording ends by itself (the server went away or was
// restarted, the output was removed) it starts again on a new connection, tried after
// PulseConnection's growing intervals until it records.
class PulseSystemAudio : public SystemAudioBackend {
public:
    Start start(std::function<void(const AudioBuffer&)> onBuffer) override;
};
