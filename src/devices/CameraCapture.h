#pragma once

// moc reads this header with C++17 predefines and cannot parse the C++20 library headers these
// pull in; it needs none of them to generate the meta-object code.
#ifndef Q_MOC_RUN
#include "core/Guarded.h"
#include "core/SerialQueue.h"
#include "platform/CameraBackend.h"
#endif

#include <QImage>
#include <QObject>
#include <QString>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// Opens one camera and keeps its newest picture twice: for the recorder's compositing pass, which
// takes it under a lock once per screen frame (pictureSlot), and for display (latestFrame). It
// records nothing and keeps no history: there is only ever the newest picture. Lists the cameras
// again whenever it opens one or is asked to (each opening of the settings' camera list), so a
// camera plugged in since shows up.
//
// Threads: the properties live on the main thread and are written there only; start, stop and
// refreshDevices are called there and place their work on `sampleQueue` ("com.velotape.camera"),
// which lists, opens and closes cameras. Pictures arrive on the backend's stream thread, go into
// the slot at once and reach latestFrame through a queued call.
class CameraCapture : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isRunning READ isRunning NOTIFY isRunningChanged)
    Q_PROPERTY(std::optional<QString> errorMessage READ errorMessage NOTIFY errorMessageChanged)
    Q_PROPERTY(QImage latestFrame READ latestFrame NOTIFY latestFrameChanged)

public:
    static inline const QString noDeviceText = QStringLiteral("No camera found.");
    static inline const QString openFailedPrefix = QStringLiteral("Couldn't open camera: ");
    static inline const QString busyText = QStringLiteral("the camera is busy in another program");
    // The camera's name and the reason follow.
    static inline const QString lostText = QStringLiteral("The camera \"%1\" stopped: %2");

    // The newest picture for the compositor; a null image while there is none. Any thread, through
    // its lock, held only to swap or copy the (shared) image.
    using PictureSlot = Guarded<QImage>;

    // A null backend lists nothing: every start says that there is no camera.
    explicit CameraCapture(std::shared_ptr<CameraBackend> backend, QObject* parent = nullptr);
    // Closes the camera and waits for it.
    ~CameraCapture() override;

    bool isRunning() const { return running; }
    const std::optional<QString>& errorMessage() const { return error; }
    const std::vector<CameraDevice>& availableDevices() const { return devices; }
    // Null from a stop until the first picture of the next start.
    QImage latestFrame() const { return frame; }
    // The identifier of the open camera; any thread.
    std::optional<QString> currentDeviceID() const;
    // For the compositor, which holds it weakly: it lives as long as this object.
    std::weak_ptr<PictureSlot> pictureSlot() const { return slot; }

    // Lists the cameras again; availableDevices follows a little later.
    void refreshDevices();
    // Opens the camera `deviceID`, or the first one listed when it is none or no longer there (the
    // test camera, when there is one, is listed first). isRunning turns true a little later. The
    // camera that is already open is not opened again; another one replaces it.
    void start(const std::optional<QString>& deviceID);
    // Closes the camera. The compositor's picture stays until the next one replaces it: the
    // compositor only asks while the camera is wanted.
    void stop();

    // Blocks until the work placed by start, stop and refreshDevices has run; for tests and tools.
    void waitUntilIdle();

signals:
    void isRunningChanged();
    void errorMessageChanged();
    void availableDevicesChanged();
    void latestFrameChanged();
    // The open camera went away or stopped delivering (unplugged, taken by a driver reset): the
    // compositor's picture is gone with it. The text is for the user.
    void lost(const QString& text);

private:
    // On sampleQueue.
    CameraBackend::Listing listAndPublish();
    void openOnQueue(const std::optional<QString>& deviceID);
    void closeOnQueue();
    // Main thread.
    void setRunning(bool value);
    void setErrorMessage(const std::optional<QString>& value);
    void setDevices(const std::vector<CameraDevice>& value);
    void setFrame(const QImage& value);
    void deviceLost(uint64_t opening, const QString& text);
    void pictureArrived(uint64_t opening, const QImage& picture);

    std::shared_ptr<CameraBackend> backend;
    const std::shared_ptr<PictureSlot> slot = std::make_shared<PictureSlot>();

    // Main thread.
    bool running = false;
    std::optional<QString> error;
    std::vector<CameraDevice> devices;
    QImage frame;

    // The opening whose pictures and loss count; older ones still on their way do not. 0: none.
    // Set on sampleQueue as it opens and closes, and on the main thread by stop.
    std::atomic<uint64_t> liveOpening { 0 };

    // sampleQueue only.
    std::unique_ptr<CameraStream> stream;
    uint64_t openings = 0;

    mutable std::mutex lock;
    std::optional<QString> deviceID; // guarded by lock

    // Last member: destroyed first, after the destructor has closed the camera.
    SerialQueue sampleQueue { QStringLiteral("com.velotape.camera") };
};
