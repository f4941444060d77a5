#pragma once

#include <QImage>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

// A camera the user can pick: its stable identifier (what the settings remember) and the name
// shown for it.
struct CameraDevice {
    QString uniqueID;
    QString name;
    friend bool operator==(const CameraDevice&, const CameraDevice&) = default;
};

// An open camera. Destroying it stops it and waits until no picture is being delivered.
class CameraStream {
public:
    virtual ~CameraStream() = default;
};

// The system's cameras (on Linux: the video capture devices of V4L2, read through libavdevice),
// and the test camera when the environment asks for one.
// Implementation: AvDeviceCameras (src/platform/camera), handed out by Platform.
class CameraBackend {
public:
    // Why an opening failed.
    enum class Failure { none, busy, other };
    struct Listing {
        std::vector<CameraDevice> devices; // the test camera, if any, comes first
        QString error; // the system could not be asked
    };
    struct Opened {
        std::unique_ptr<CameraStream> stream;
        Failure failure = Failure::none;
        QString error; // the reason in words, when there is no stream
    };
    // Each picture as 32-bit BGRA (QImage::Format_RGB32), the newest only: a picture that is not
    // taken before the next one arrives is never delivered.
    using PictureSink = std::function<void(QImage)>;
    using LostSink = std::function<void(const QString& reason)>;

    virtual ~CameraBackend() = default;

    // Lists the cameras as they are now (a camera plugged in since the last call is there). Blocks
    // briefly while the devices answer. Any thread.
    virtual Listing listDevices() = 0;
    // Blocks until the camera is open or has failed. Pictures go to `onPicture` on the stream's own
    // thread; `onLost` is called there, once, if the camera goes away or stops delivering.
    virtual Opened open(const QString& uniqueID, PictureSink onPicture, LostSink onLost) = 0;
};
