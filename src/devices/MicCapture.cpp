#include "devices/MicCapture.h"

#include "core/Log.h"
#include "devices/MicGainControl.h"

#include <QPointer>

#include <algorithm>
#include <utility>

MicCapture::MicCapture(std::shared_ptr<MicrophoneBackend> b, QObject* parent)
    : QObject(parent)
    , backend(std::move(b))
{
    if (!backend) return;
    // Microphones plugged in or out show up in the list at once.
    QPointer<MicCapture> self(this);
    backend->watchDevices([self] {
        QMetaObject::invokeMethod(
            self.data(),
            [self] {
                if (self) self->refreshDevices();
            },
            Qt::QueuedConnection);
    });
}

MicCapture::~MicCapture()
{
    if (backend) backend->watchDevices({});
    sampleQueue.sync([this] { closeOnQueue(); });
}

std::optional<QString> MicCapture::currentDeviceID() const
{
    std::lock_guard guard(lock);
    return deviceID;
}

void MicCapture::refreshDevices()
{
    sampleQueue.async([this] {
        const MicrophoneBackend::Listing listing = listAndPublish();
        if (stream || !lostID
            || std::none_of(listing.devices.begin(), listing.devices.end(),
                [&](const MicrophoneDevice& d) { return d.uniqueID == *lostID; }))
            return;
        // The microphone that went away is back: it records again, and the news of its loss is old.
        openOnQueue(std::exchange(lostID, std::nullopt));
        if (stream)
            QMetaObject::invokeMethod(
                this, [this] { setErrorMessage(std::nullopt); }, Qt::QueuedConnection);
    });
}

void MicCapture::start(const std::optional<QString>& wanted)
{
    setErrorMessage(std::nullopt);
    sampleQueue.async([this, wanted] {
        lostID.reset();
        openOnQueue(wanted);
    });
}

void MicCapture::stop()
{
    sampleQueue.async([this] {
        lostID.reset();
        closeOnQueue();
        QMetaObject::invokeMethod(
            this, [this] { setRunning(false); }, Qt::QueuedConnection);
    });
}

void MicCapture::waitUntilIdle()
{
    sampleQueue.sync([] {});
}

MicrophoneBackend::Listing MicCapture::listAndPublish()
{
    MicrophoneBackend::Listing listing = backend ? backend->listDevices() : MicrophoneBackend::Listing {};
    QMetaObject::invokeMethod(
        this, [this, list = listing.devices] { setDevices(list); }, Qt::QueuedConnection);
    // The open device is no longer listed: it was unplugged, whether or not its stream says so.
    const std::optional<QString> open = currentDeviceID();
    if (stream && open && listing.error.isEmpty()
        && std::none_of(listing.devices.begin(), listing.devices.end(),
            [&](const MicrophoneDevice& d) { return d.uniqueID == *open; })) {
        closeAsLost(lostText.arg(openName, QStringLiteral("it was unplugged or removed")));
    }
    return listing;
}

void MicCapture::openOnQueue(const std::optional<QString>& wanted)
{
    const MicrophoneBackend::Listing listing = listAndPublish();
    auto fail = [this](const QString& text, bool stopped) {
        if (stopped) closeOnQueue();
        QMetaObject::invokeMethod(
            this,
            [this, text, stopped] {
                setErrorMessage(text);
                if (stopped) setRunning(false);
            },
            Qt::QueuedConnection);
    };
    if (!listing.error.isEmpty()) return fail(openFailedPrefix + listing.error, true);

    // The remembered device if it is there; otherwise the system's default, without a word.
    const auto& list = listing.devices;
    auto chosen = std::find_if(
        list.begin(), list.end(), [&](const MicrophoneDevice& d) { return wanted && d.uniqueID == *wanted; });
    if (chosen == list.end() && listing.defaultID)
        chosen = std::find_if(
            list.begin(), list.end(), [&](const MicrophoneDevice& d) { return d.uniqueID == *listing.defaultID; });
    if (chosen == list.end() && !list.empty()) chosen = list.begin();
    if (chosen == list.end()) return fail(noDeviceText, true);

    if (stream && currentDeviceID() == chosen->uniqueID) return; // already open: not even the gain changes

    closeOnQueue();
    const uint64_t opening = ++openings;
    // The buffer is ours alone: the gain works on its samples where they are.
    auto levelled = [sink = onSample, gain = MicGainControl::State {}](AudioBuffer buffer) mutable {
        MicGainControl::apply(buffer, gain);
        if (sink) sink(buffer);
    };
    auto lost = [this, opening, name = chosen->name](const QString& reason) {
        const QString text = lostText.arg(name, reason);
        QMetaObject::invokeMethod(
            this, [this, opening, text] { deviceLost(opening, text); }, Qt::QueuedConnection);
    };
    MicrophoneBackend::Opened opened = backend->open(chosen->uniqueID, std::move(levelled), std::move(lost));
    if (!opened.stream) {
        // The device before it is closed already; the state is as after a failed swap.
        logLine(QStringLiteral("Microphone %1: %2").arg(chosen->uniqueID, opened.error));
        return fail(openFailedPrefix + opened.error, false);
    }
    stream = std::move(opened.stream);
    openName = chosen->name;
    {
        std::lock_guard guard(lock);
        deviceID = chosen->uniqueID;
    }
    QMetaObject::invokeMethod(
        this, [this] { setRunning(true); }, Qt::QueuedConnection);
}

void MicCapture::closeOnQueue()
{
    stream.reset();
    std::lock_guard guard(lock);
    deviceID.reset();
}

void MicCapture::deviceLost(uint64_t opening, const QString& text)
{
    sampleQueue.async([this, opening, text] {
        if (opening != openings || !stream) return; // a device since replaced or closed
        closeAsLost(text);
    });
}

void MicCapture::closeAsLost(const QString& text)
{
    logLine(text);
    lostID = currentDeviceID();
    closeOnQueue();
    QMetaObject::invokeMethod(
        this,
        [this, text] {
            setErrorMessage(text);
            setRunning(false);
        },
        Qt::QueuedConnection);
}

void MicCapture::setRunning(bool value)
{
    if (running == value) return;
    running = value;
    emit isRunningChanged();
}

void MicCapture::setErrorMessage(const std::optional<QString>& value)
{
    if (error == value) return;
    error = value;
    emit errorMessageChanged();
}

void MicCapture::setDevices(const std::vector<MicrophoneDevice>& value)
{
    if (devices == value) return;
    devices = value;
    emit availableDevicesChanged();
}
