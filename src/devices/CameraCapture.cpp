#include "devices/CameraCapture.h"

#include "core/Log.h"

#include <QPointer>

#include <algorithm>
#include <utility>

CameraCapture::CameraCapture(std::shared_ptr<CameraBackend> b, QObject* parent)
    : QObject(parent)
    , backend(std::move(b))
{
}

CameraCapture::~CameraCapture()
{
    sampleQueue.sync([this] { closeOnQueue(); });
}

std::optional<QString> CameraCapture::currentDeviceID() const
{
    std::lock_guard guard(lock);
    return deviceID;
}

void CameraCapture::refreshDevices()
{
    sampleQueue.async([this] { listAndPublish(); });
}

void CameraCapture::start(const std::optional<QString>& wanted)
{
    setErrorMessage(std::nullopt);
    sampleQueue.async([this, wanted] { openOnQueue(wanted); });
}

void CameraCapture::stop()
{
    liveOpening = 0;
    setRunning(false);
    setFrame({});
    sampleQueue.async([this] { closeOnQueue(); });
}

void CameraCapture::waitUntilIdle()
{
    sampleQueue.sync([] {});
}

CameraBackend::Listing CameraCapture::listAndPublish()
{
    CameraBackend::Listing listing = backend ? backend->listDevices() : CameraBackend::Listing {};
    if (!listing.error.isEmpty()) logLine(QStringLiteral("Cameras could not be listed: ") + listing.error);
    QMetaObject::invokeMethod(
        this, [this, list = listing.devices] { setDevices(list); }, Qt::QueuedConnection);
    return listing;
}

void CameraCapture::openOnQueue(const std::optional<QString>& wanted)
{
    const CameraBackend::Listing listing = listAndPublish();
    auto fail = [this](const QString& text) {
        closeOnQueue();
        // No camera now: the compositor has nothing left to draw.
        *slot->lock() = QImage();
        QMetaObject::invokeMethod(
            this,
            [this, text] {
                setErrorMessage(text);
                setRunning(false);
                setFrame({});
            },
            Qt::QueuedConnection);
    };

    // The remembered camera if it is there; otherwise the first one, without a word.
    const auto& list = listing.devices;
    auto chosen = std::find_if(
        list.begin(), list.end(), [&](const CameraDevice& d) { return wanted && d.uniqueID == *wanted; });
    if (chosen == list.end() && !list.empty()) chosen = list.begin();
    if (chosen == list.end()) return fail(noDeviceText);

    if (stream && currentDeviceID() == chosen->uniqueID) return;

    // The camera before is closed first: two cameras open at once may not fit the USB bus.
    closeOnQueue();
    const uint64_t opening = ++openings;
    liveOpening = opening;
    auto onPicture = [this, opening, target = std::weak_ptr<PictureSlot>(slot)](QImage picture) {
        // The compositor sees it from here on; the display path below never holds it up.
        if (auto s = target.lock()) *s->lock() = picture;
        QMetaObject::invokeMethod(
            this, [this, opening, picture] { pictureArrived(opening, picture); }, Qt::QueuedConnection);
    };
    auto onLost = [this, opening, name = chosen->name](const QString& reason) {
        const QString text = lostText.arg(name, reason);
        QMetaObject::invokeMethod(
            this, [this, opening, text] { deviceLost(opening, text); }, Qt::QueuedConnection);
    };
    CameraBackend::Opened opened = backend->open(chosen->uniqueID, std::move(onPicture), std::move(onLost));
    if (!opened.stream) {
        logLine(QStringLiteral("Camera %1: %2").arg(chosen->uniqueID, opened.error));
        return fail(openFailedPrefix + (opened.failure == CameraBackend::Failure::busy ? busyText : opened.error));
    }
    stream = std::move(opened.stream);
    {
        std::lock_guard guard(lock);
        deviceID = chosen->uniqueID;
    }
    QMetaObject::invokeMethod(
        this,
        [this, opening] {
            if (opening == liveOpening) setRunning(true);
        },
        Qt::QueuedConnection);
}

void CameraCapture::closeOnQueue()
{
    liveOpening = 0;
    stream.reset();
    std::lock_guard guard(lock);
    deviceID.reset();
}

void CameraCapture::pictureArrived(uint64_t opening, const QImage& picture)
{
    if (opening != liveOpening) return;
    setFrame(picture);
}

void CameraCapture::deviceLost(uint64_t opening, const QString& text)
{
    if (opening != liveOpening) return; // a camera since replaced or closed
    // The bubble goes with the camera, rather than a picture frozen at the moment it went.
    *slot->lock() = QImage();
    liveOpening = 0;
    setRunning(false);
    setFrame({});
    setErrorMessage(text);
    logLine(text);
    emit lost(text);
    sampleQueue.async([this, opening] {
        if (opening == openings) closeOnQueue();
    });
}

void CameraCapture::setRunning(bool value)
{
    if (running == value) return;
    running = value;
    emit isRunningChanged();
}

void CameraCapture::setErrorMessage(const std::optional<QString>& value)
{
    if (error == value) return;
    error = value;
    emit errorMessageChanged();
}

void CameraCapture::setDevices(const std::vector<CameraDevice>& value)
{
    if (devices == value) return;
    devices = value;
    emit availableDevicesChanged();
}

void CameraCapture::setFrame(const QImage& value)
{
    if (frame.isNull() && value.isNull()) return;
    frame = value;
    emit latestFrameChanged();
}
