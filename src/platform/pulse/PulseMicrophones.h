#pragma once

#include "platform/MicrophoneBackend.h"

#include <pulse/pulseaudio.h>

#include <memory>
#include <mutex>

// Microphones on PulseAudio (and PipeWire's PulseAudio server): its sources that are not the
// monitor of an output, identified by the source's name and shown by its description. A long-lived
// connection lists them and follows them coming and going; each open microphone is a
// PulseAudioSource of its own, recorded in the source's own format.
class PulseMicrophones : public MicrophoneBackend {
public:
    PulseMicrophones();
    ~PulseMicrophones() override;

    Listing listDevices() override;
    Opened open(const QString& uniqueID, BufferSink onBuffer, LostSink onLost) override;
    void watchDevices(std::function<void()> changed) override;

private:
    struct MainloopFree {
        void operator()(pa_threaded_mainloop* m) const { pa_threaded_mainloop_free(m); }
    };
    struct ContextUnref {
        void operator()(pa_context* c) const { pa_context_unref(c); }
    };

    // With `guard` held: a ready connection, made (again) if needed; the reason when there is none.
    QString connect();
    void disconnect();
    void subscribe();
    // On the PulseAudio thread.
    static void onContextState(pa_context* context, void* self);
    static void onEvent(pa_context* context, pa_subscription_event_type_t type, uint32_t index, void* self);

    std::mutex guard; // one caller at a time talks to the connection
    std::unique_ptr<pa_threaded_mainloop, MainloopFree> mainloop;
    std::unique_ptr<pa_context, ContextUnref> context;
    std::function<void()> changed; // read on the PulseAudio thread under the main loop's lock
};
