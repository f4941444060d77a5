#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <memory>

class AppSettings;
class MicCapture;
class SegmentedRecorder;
class SoundServerWatcher;

// The segments' audio track and the microphone in step with the two audio switches: segments carry
// audio when either source is on; the microphone opens, closes and changes device with its settings;
// system audio, part of the stream's set-up, asks for a new stream. A sound server that goes away or
// comes back is said in a toast while any sound is wanted.
//
// Main thread; the sound server's reports arrive by queued calls.
class AudioRouting : public QObject {
    Q_OBJECT
public:
    static inline const QString soundLostText
        = QStringLiteral("Sound lost: the sound server went away. Clips have no sound until it is back.");
    static inline const QString soundBackText = QStringLiteral("Sound is back");

    // Starts the microphone if it was left on. `soundServer` may be null (nobody tells).
    AudioRouting(AppSettings& settings, SegmentedRecorder& recorder, MicCapture& microphone,
        std::unique_ptr<SoundServerWatcher> soundServer, std::function<void(const QString&)> toast,
        std::function<void()> restartStream, QObject* parent = nullptr);
    ~AudioRouting() override;

private:
    void followSoundServer();

    AppSettings& settings;
    SegmentedRecorder& recorder;
    MicCapture& microphone;
    std::unique_ptr<SoundServerWatcher> soundServer;
    std::function<void(const QString&)> toast;
    std::function<void()> restartStream;
};
