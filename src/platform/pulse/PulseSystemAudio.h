#pragma once

#include "platform/SystemAudioBackend.h"

// System audio on PulseAudio (and PipeWire's PulseAudio server): the monitor of the default sink,
// recorded in its own sample format.
class PulseSystemAudio : public SystemAudioBackend {
public:
    Start start(std::function<void(const AudioBuffer&)> onBuffer) override;
};
