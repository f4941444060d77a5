#pragma once

// moc reads this header with C++17 predefines and cannot parse the C++20 library headers these
// pull in; it needs none of them to generate the meta-object code.
#ifndef Q_MOC_RUN
#include "core/SerialQueue.h"
#include "platform/MicrophoneBackend.h"
#endif

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// Opens one microphone, levels it with the automatic gain control (MicGainControl) and hands every
// buffer, in the device's own format, to `onSample`. Lists the microphones and follows them as
// they come and go.
//
// Threads: the properties live on the main thread and are written there only; start, stop and
// refreshDevices are called there and place their work on `sampleQueue` ("com.velotape.mic"), which
// opens and closes devices. The gain control and onSample run on the backend's audio thread, one
// buffer at a time; every opening starts at unity gain.
class MicCapture : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY isRunningChanged)
    Q_PROPERTY(std::optional<QString> errorMessage READ errorMessage NOTIFY errorMessageChanged)

public:
    static inline const QString noDeviceText = QStringLiteral("No microphone found.");
    static inline const QString openFailedPrefix = QStringLiteral("Couldn't open microphone: ");
    // The device's name and the reason follow.
    static inline const QString lostText = QStringLiteral("The microphone \"%1\" stopped: %2");

    // A null backend lists nothing: every start says that there is no microphone.
    explicit MicCapture(std::shared_ptr<MicrophoneBackend> backend, QObject* parent = nullptr);
    // Closes the device and waits for it.
    ~MicCapture() override;

    bool isRunning() const { return running; }
    const std::optional<QString>& errorMessage() const { return error; }
    const std::vector<MicrophoneDevice>& availableDevices() const { return devices; }
    // The identifier of the open device; any thread.
    std::optional<QString> currentDeviceID() const;

    // Lists the devices again; availableDevices follows a little later. A microphone that went away
    // while it was on and is listed again is opened again, and its message goes.
    void refreshDevices();
    // Opens the device `deviceID`, or the system's default microphone when it is none or no longer
    // there. isRunning turns true a little later. The device that is already open is not opened
    // again; another one replaces it without a gap in isRunning.
    void start(const std::optional<QString>& deviceID);
    void stop();

    // Set before start; called on the audio thread with each levelled buffer.
    std::function<void(const AudioBuffer&)> onSample;

    // Blocks until the work placed by start, stop and refreshDevices has run; for tests and tools.
    void waitUntilIdle();

signals:
    void isRunningChanged();
    void errorMessageChanged();
    void availableDevicesChanged();

private:
    // On sampleQueue.
    MicrophoneBackend::Listing listAndPublish();
    void openOnQueue(const std::optional<QString>& deviceID);
    void closeOnQueue();
    // The open microphone went away: close it and say so where the user sees it. On the queue.
    void closeAsLost(const QString& text);
    // Main thread.
    void setRunning(bool value);
    void setErrorMessage(const std::optional<QString>& value);
    void setDevices(const std::vector<MicrophoneDevice>& value);
    void deviceLost(uint64_t opening, const QString& text);

    std::shared_ptr<MicrophoneBackend> backend;

    // Main thread.
    bool running = false;
    std::optional<QString> error;
    std::vector<MicrophoneDevice> devices;

    // sampleQueue only.
    std::unique_ptr<MicrophoneStream> stream;
    QString openName; // the name of the open device, for the user
    std::optional<QString> lostID; // the device that went away while on, until start or stop
    uint64_t openings = 0; // counts openings, so that the loss of an old device is not news

    mutable std::mutex lock;
    std::optional<QString> deviceID; // guarded by lock

    // Last member: destroyed first, after the destructor has closed the device.
    SerialQueue sampleQueue { QStringLiteral("com.velotape.mic") };
};
