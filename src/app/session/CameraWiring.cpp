#include "app/session/CameraWiring.h"

#include "app/AppSettings.h"
#include "core/Publisher.h"
#include "devices/CameraCapture.h"
#include "recorder/SegmentedRecorder.h"

CameraWiring::CameraWiring(
    AppSettings& s, CameraCapture& c, SegmentedRecorder& r, std::function<void(const QString&)> toast, QObject* parent)
    : QObject(parent)
    , settings(s)
    , camera(c)
    , recorder(r)
{
    // The provider holds the camera's picture weakly: a camera that is gone gives no bubble.
    recorder.cameraProvider
        = [placed = placement, pictures = camera.pictureSlot()]() -> std::optional<CameraComposite> {
        std::optional<CameraComposite> composite = *placed->lock();
        if (!composite) return std::nullopt;
        const std::shared_ptr<CameraCapture::PictureSlot> slot = pictures.lock();
        if (!slot) return std::nullopt;
        composite->image = *slot->lock();
        if (composite->image.isNull()) return std::nullopt;
        return composite;
    };

    // The list of cameras, for the settings.
    camera.refreshDevices();
    // The switch opens and closes the camera. This also runs once at launch, so a camera left on
    // starts before any window shows.
    observe(&settings, &AppSettings::cameraEnabled, &AppSettings::cameraEnabledChanged)
        .removeDuplicates()
        .sink(this, [this](bool on) {
            if (on)
                camera.start(settings.cameraDeviceID());
            else
                camera.stop();
        });
    // Another camera chosen while it is on replaces it.
    observe(&settings, &AppSettings::cameraDeviceID, &AppSettings::cameraDeviceIDChanged)
        .dropFirst()
        .sink(this, [this](const std::optional<QString>& id) {
            if (settings.cameraEnabled()) camera.start(id);
        });

    // Every setting that moves or changes the bubble, and the switch itself.
    for (auto changed :
        { &AppSettings::cameraEnabledChanged, &AppSettings::cameraShapeChanged, &AppSettings::cameraFrameStyleChanged,
            &AppSettings::cameraFrameEnabledChanged, &AppSettings::cameraPositionXChanged,
            &AppSettings::cameraPositionYChanged, &AppSettings::cameraSizeChanged })
        connect(&settings, changed, this, &CameraWiring::updatePlacement);
    updatePlacement();

    // A still screen still records the camera's motion, while there is a camera picture to record.
    connect(&camera, &CameraCapture::isRunningChanged, this,
        [this] { recorder.setKeepsFrameRate(settings.cameraEnabled() && camera.isRunning()); });
    connect(&camera, &CameraCapture::lost, this, [toast = std::move(toast)](const QString& text) {
        if (toast) toast(text);
    });
}

std::optional<CameraComposite> CameraWiring::placementOf(const AppSettings& s)
{
    if (!s.cameraEnabled()) return std::nullopt;
    CameraComposite composite;
    composite.positionX = s.cameraPositionX();
    composite.positionY = s.cameraPositionY();
    composite.sizeFrac = s.cameraSize();
    composite.shape = s.cameraShape();
    composite.frameStyle = s.effectiveCameraFrameStyle();
    return composite;
}

void CameraWiring::updatePlacement()
{
    *placement->lock() = placementOf(settings);
    recorder.setKeepsFrameRate(settings.cameraEnabled() && camera.isRunning());
}
