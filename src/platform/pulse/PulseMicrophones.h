#pragma once

#include "platform/MicrophoneBackend.h"
#include "platform/pulse/PulseConnection.h"

#include <pulse/pulseaudio.h>

#include <memory>
#include <mutex>

// Microphones on PulseAudio (and PipeWire's PulseAudio server): its sources that are not the
// monitor of an output, identified by the source's name and shown by its description. A long-lived
// connection lists them and follows them coming and going, and is made again when the server
// restarts, which counts as a change (a microphone lost with the old server is then listed again);
// each open microphone is a PulseAudioSource of its own, recorded in the source's own format.
class PulseMicrophones : public MicrophoneBackend {
public:
    PulseMicrophones();
    ~PulseMicrophones() override;

    Listing listDevices() override;
    Opened open(const QString& uniqueID, BufferSink onBuffer, LostSink onLost) override;
    void watchDevices(std::function<void()> changed) override;

private:
    // With `guard` held: the connection, started at the first use.
    PulseConnection& connection();
    // On the PulseAudio thread.
    static void onEvent(pa_context* context, pa_subscription_event_type_t type, uint32_t index, void* self);

    std::mutex guard; // one caller at a time talks to the connection
    std::unique_ptr<PulseConnection> server;
    std::function<void()> changed; // read on the PulseAudio thread under the main loop's lock
};
