#include "platform/pulse/PulseSystemAudio.h"

#include "platform/pulse/PulseAudioSource.h"

SystemAudioBackend::Start PulseSystemAudio::start(std::function<void(const AudioBuffer&)> onBuffer)
{
    PulseAudioSource::Opened opened = PulseAudioSource::open(
        PulseAudioSource::Device::defaultSinkMonitor, {}, QStringLiteral("System audio"), std::move(onBuffer));
    return { std::move(opened.source), opened.error };
}
