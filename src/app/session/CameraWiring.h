#pragma once

// moc reads this header with C++17 predefines and cannot parse the C++20 library headers these
// pull in; it needs none of them to generate the meta-object code.
#ifndef Q_MOC_RUN
#include "core/Guarded.h"
#include "recorder/CameraComposite.h"
#endif

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class AppSettings;
class CameraCapture;
class SegmentedRecorder;

// The camera's subscriptions: the camera opens and closes with its switch and follows the chosen
// device; the ring's camera provider burns the bubble into every frame at the place, size and
// shape of the settings; the ring keeps its frame rate while the camera delivers; a camera that
// goes away mid-way says so in a toast, and the recording goes on without the bubble.
//
// Main thread. The provider it gives the ring runs on the ring's queue: it reads the overlay's
// placement and the camera's picture, each under its own lock, never the settings themselves.
class CameraWiring : public QObject {
    Q_OBJECT
public:
    CameraWiring(AppSettings& settings, CameraCapture& camera, SegmentedRecorder& recorder,
        std::function<void(const QString&)> toast, QObject* parent = nullptr);

    // The overlay's placement from the settings as the ring sees it: none while the camera is off.
    // Without its picture, which the provider adds for each frame.
    static std::optional<CameraComposite> placementOf(const AppSettings& settings);

private:
    void updatePlacement();

    AppSettings& settings;
    CameraCapture& camera;
    SegmentedRecorder& recorder;
    // Written here on every change of a camera setting; read by the provider on the ring's queue.
    const std::shared_ptr<Guarded<std::optional<CameraComposite>>> placement
        = std::make_shared<Guarded<std::optional<CameraComposite>>>();
};
