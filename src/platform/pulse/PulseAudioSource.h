#pragma once

#include "capture/SampleClock.h"
#include "media/MediaSample.h"
#include "platform/CaptureStream.h"

#include <QString>

#include <pulse/pulseaudio.h>

#include <functional>
#include <memory>
#include <optional>

// Records one PulseAudio source in its own sample format (float32 or s16; a source in any other
// format is asked for as float32) on libpulse's threaded main loop, and stamps each buffer with
// the monotonic capture clock: the time of its first sample, counted on by samples and set again
// from the clock when the two stay apart (SampleClock).
class PulseAudioSource : public CaptureStream {
public:
    enum class Device {
        defaultSinkMonitor, // what the system plays
        defaultSource, // the default microphone
        named, // the source called `name`
    };
    struct Opened {
        std::unique_ptr<PulseAudioSource> source;
        QString error;
    };

    // Blocks until recording runs or has failed. `onBuffer` runs on the PulseAudio thread, and so
    // does `onEnded`, once, with the reason, if recording ends by itself (the source was removed,
    // the server went away). A named source is never swapped for another one when it goes.
    // A buffer is handed over whole: its receiver may change it in place without a copy.
    static Opened open(Device device, const QString& name, const QString& streamName,
        std::function<void(AudioBuffer)> onBuffer, std::function<void(const QString&)> onEnded = {});
    ~PulseAudioSource() override;

    // Any thread but the PulseAudio one. Once it returns, onBuffer is not called again.
    void stop() override;

    // The name of the source being recorded and the format buffers come in.
    const QString& sourceName() const { return recordedSource; }
    AudioBuffer::SampleFormat format() const { return sampleFormat; }

private:
    struct MainloopFree {
        void operator()(pa_threaded_mainloop* m) const { pa_threaded_mainloop_free(m); }
    };
    struct ContextUnref {
        void operator()(pa_context* c) const { pa_context_unref(c); }
    };
    struct StreamUnref {
        void operator()(pa_stream* s) const { pa_stream_unref(s); }
    };

    PulseAudioSource() = default;
    QString start(Device device, const QString& name, const QString& streamName);
    QString errorText() const;
    // On the PulseAudio thread.
    static void onContextState(pa_context* context, void* self);
    static void onStreamState(pa_stream* stream, void* self);
    static void onReadable(pa_stream* stream, size_t bytes, void* self);
    void readAvailable();

    std::unique_ptr<pa_threaded_mainloop, MainloopFree> mainloop;
    std::unique_ptr<pa_context, ContextUnref> context;
    std::unique_ptr<pa_stream, StreamUnref> stream;
    std::function<void(AudioBuffer)> deliver;
    std::function<void(const QString&)> ended;
    bool recording = false; // PulseAudio thread: the stream was ready and not stopped by us
    QString recordedSource;
    AudioBuffer::SampleFormat sampleFormat = AudioBuffer::SampleFormat::Float32;
    int sampleRate = 44100;
    int channels = 1;
    bool running = false;

    std::optional<SampleClock> clock; // PulseAudio thread only, once the rate is known
};
