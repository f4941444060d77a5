#pragma once

#include "platform/CameraBackend.h"

#include <QByteArray>

// Cameras through libavdevice: the V4L2 video capture devices (/dev/video*), named by the card's
// own name ("Integrated Camera"), identified by their device path; and, when the environment holds
// an FFmpeg lavfi graph in VELOTAPE_FAKE_CAMERA, the "Test camera" fed by that graph through the
// same reading and decoding path, paced to real time as a device would be. Each open camera reads
// and decodes on a thread of its own.
class AvDeviceCameras : public CameraBackend {
public:
    static inline const QString testCameraID = QStringLiteral("velotape-test-camera");
    static inline const QString testCameraName = QStringLiteral("Test camera");

    // `testCameraGraph` empty: no test camera. The program passes the environment's value.
    explicit AvDeviceCameras(QByteArray testCameraGraph);

    Listing listDevices() override;
    Opened open(const QString& uniqueID, PictureSink onPicture, LostSink onLost) override;

private:
    QByteArray testGraph;
};
