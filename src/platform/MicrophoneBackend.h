#pragma once

#include "media/MediaSample.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// A microphone the user can pick: its stable identifier (what the settings remember) and the name
// shown for it.
struct MicrophoneDevice {
    QString uniqueID;
    QString name;
    friend bool operator==(const MicrophoneDevice&, const MicrophoneDevice&) = default;
};

// An open microphone. Destroying it stops it.
class MicrophoneStream {
public:
    virtual ~MicrophoneStream() = default;
};

// The sound system's microphones (on PulseAudio: its sources that are not monitors of an output).
// Implementation: PulseMicrophones (src/platform/pulse), handed out by Platform.
class MicrophoneBackend {
public:
    struct Listing {
        std::vector<MicrophoneDevice> devices;
        std::optional<QString> defaultID; // the system's default microphone, if it is listed
        QString error; // the sound system could not be asked
    };
    struct Opened {
        std::unique_ptr<MicrophoneStream> stream;
        QString error; // the reason, when there is no stream
    };
    // Takes each buffer over, so that it can be changed in place without a copy.
    using BufferSink = std::function<void(AudioBuffer)>;
    using LostSink = std::function<void(const QString& reason)>;

    virtual ~MicrophoneBackend() = default;

    // Blocks while the sound system answers. Any thread.
    virtual Listing listDevices() = 0;
    // Blocks until the device records or has failed. Buffers in the device's own format (float32
    // or s16), stamped on the capture clock, go to `onBuffer` on the backend's audio thread;
    // `onLost` is called there, once, if the device goes away or fails while open.
    virtual Opened open(const QString& uniqueID, BufferSink onBuffer, LostSink onLost) = 0;
    // `changed` is called on the backend's thread whenever a microphone comes or goes; it replaces
    // the one before, and an empty one stops the watch. Once this returns the old one is not called.
    virtual void watchDevices(std::function<void()> changed) = 0;
};
