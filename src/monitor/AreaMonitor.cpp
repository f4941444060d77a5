#include "monitor/AreaMonitor.h"

#include "monitor/AreaSignature.h"

#include <QMetaObject>

AreaMonitor::AreaMonitor(std::unique_ptr<AreaGrabber> grabber, Clock clock, QObject* parent)
    : QObject(parent)
    , grabber(std::move(grabber))
    , clock(clock ? std::move(clock) : Clock([] { return std::chrono::steady_clock::now(); }))
{
}

AreaMonitor::~AreaMonitor() = default;

void AreaMonitor::setSensitivity(AreaSensitivity value)
{
    if (sensitivityValue == value) return;
    sensitivityValue = value;
    emit sensitivityChanged();
}

void AreaMonitor::setRect(const std::optional<QRectF>& value)
{
    const std::optional<QRectF> old = rectValue;
    rectValue = value;
    retarget();
    const bool same = (!old && !value) || (old && value && *old == *value);
    if (!same) emit rectChanged();
    if (hydrating || same) return;
    if (!value) clearWindowScope();
    // A different rectangle makes the reference meaningless.
    clearReference();
    setPhase(MonitorPhase::idle);
}

void AreaMonitor::setRect(const QRectF& value, std::optional<uint32_t> scopedTo, std::optional<QRectF> windowFrame)
{
    if (!scopedTo || !windowFrame) {
        clearWindowScope();
    } else {
        scopedWindowIDValue = scopedTo;
        windowLocalRectValue
            = QRectF(value.x() - windowFrame->x(), value.y() - windowFrame->y(), value.width(), value.height());
    }
    setRect(std::optional<QRectF>(value));
}

void AreaMonitor::clearWindowScope()
{
    scopedWindowIDValue.reset();
    windowLocalRectValue.reset();
    retarget();
}

std::optional<AreaMonitor::ArmFailure> AreaMonitor::arm()
{
    if (!rectValue) return ArmFailure::noRect;
    if (!referenceSignatureValue && !captureReference()) return ArmFailure::captureFailed;
    setIsArmed(true);
    setPhase(MonitorPhase::matching);
    matchStreakStartValue.reset();
    selfTriggeredRecordingValue = false;
    retarget();
    // Arming twice leaves one poll.
    poller.start(std::chrono::milliseconds(static_cast<int>(pollInterval * 1000)), [this] { poll(); });
    return std::nullopt;
}

void AreaMonitor::disarm()
{
    poller.stop();
    setIsArmed(false);
    retarget();
    setPhase(MonitorPhase::idle);
    if (selfTriggeredRecordingValue) {
        if (onShouldStopRecording) onShouldStopRecording();
        selfTriggeredRecordingValue = false;
    }
    matchStreakStartValue.reset();
}

bool AreaMonitor::captureReference()
{
    if (!rectValue) return false;
    std::optional<QImage> image = screenshot();
    if (!image) return false;
    const std::optional<QByteArray> signature = AreaSignature::downsampleToSignature(*image);
    if (!signature) return false;
    adoptReference(std::move(*image), *signature);
    return true;
}

bool AreaMonitor::captureReferenceOf(
    const QRectF& value, std::optional<uint32_t> scopedTo, std::optional<QRectF> windowFrame)
{
    const bool scoped = scopedTo && windowFrame;
    const QRectF windowLocal = scoped
        ? QRectF(value.x() - windowFrame->x(), value.y() - windowFrame->y(), value.width(), value.height())
        : QRectF();
    const std::optional<GrabTarget> target = grabTargetOf(value, scoped ? scopedTo : std::nullopt, windowLocal);
    std::optional<QImage> image = target ? screenshotOf(*target) : std::nullopt;
    if (!image) return false;
    const std::optional<QByteArray> signature = AreaSignature::downsampleToSignature(*image);
    if (!signature) return false;
    setRect(value, scopedTo, windowFrame);
    adoptReference(std::move(*image), *signature);
    return true;
}

void AreaMonitor::adoptReference(QImage image, const QByteArray& signature)
{
    referenceSignatureValue = signature;
    retarget();
    setReferenceThumbnail(std::move(image));
    setPhase(isArmedValue ? MonitorPhase::matching : MonitorPhase::idle);
    if (onReferenceChanged) onReferenceChanged(signature);
}

void AreaMonitor::clearReference()
{
    referenceSignatureValue.reset();
    retarget();
    setReferenceThumbnail(std::nullopt);
    if (onReferenceChanged) onReferenceChanged(std::nullopt);
}

void AreaMonitor::hydrate(const std::optional<QRectF>& rect, const std::optional<QByteArray>& signatureData)
{
    hydrating = true;
    setRect(rect);
    hydrating = false;
    if (!signatureData || !AreaSignature::isValid(*signatureData)) return;
    referenceSignatureValue = signatureData;
    retarget();
    if (!rectValue) return;
    // The thumbnail shows the screen at launch, not the moment of the reference: that picture
    // was never stored.
    if (std::optional<QImage> image = screenshot()) setReferenceThumbnail(std::move(image));
}

void AreaMonitor::monitorReset()
{
    selfTriggeredRecordingValue = false;
    matchStreakStartValue.reset();
}

void AreaMonitor::tick()
{
    if (!rectValue || !referenceSignatureValue) return;
    compare(liveSignature(), clock());
}

void AreaMonitor::retarget()
{
    ++pollGeneration;
    std::optional<PollTarget> target;
    if (isArmedValue && rectValue && referenceSignatureValue && grabber) {
        const bool scoped = scopedWindowIDValue && windowLocalRectValue;
        target = PollTarget { *rectValue, scoped ? scopedWindowIDValue : std::nullopt,
            scoped ? windowLocalRectValue : std::nullopt, pollGeneration };
    }
    *pollTarget.lock() = target;
}

void AreaMonitor::poll()
{
    const std::optional<PollTarget> target = *pollTarget.lock();
    if (!target) return;
    // The moment of the look, before the grab: a slow grab shows the area as it was when it began.
    const auto at = clock();
    Sighting seen { signatureOf(*grabber, target->area, target->windowID, target->windowLocal), at,
        target->generation };
    bool post = false;
    {
        auto locked = sightings.lock();
        if (locked->waiting.size() >= sightingsWaitingLimit) locked->waiting.pop_front();
        locked->waiting.push_back(std::move(seen));
        post = !std::exchange(locked->posted, true);
    }
    // A call posted to a monitor that has gone is discarded with its other posted events; the poll
    // is stopped before anything it uses is destroyed.
    if (post)
        QMetaObject::invokeMethod(
            this, [this] { takeSightings(); }, Qt::QueuedConnection);
}

void AreaMonitor::takeSightings()
{
    std::deque<Sighting> taken;
    {
        auto locked = sightings.lock();
        taken.swap(locked->waiting);
        locked->posted = false;
    }
    for (const Sighting& seen : taken) {
        // A callback may disarm or move the area: what follows is then about something else.
        if (seen.generation != pollGeneration || !isArmedValue || !rectValue || !referenceSignatureValue) continue;
        compare(seen.live, seen.at);
    }
}

std::optional<QByteArray> AreaMonitor::signatureOf(AreaGrabber& grabber, const QRectF& area,
    std::optional<uint32_t> windowID, const std::optional<QRectF>& windowLocal)
{
    if (!windowID || !windowLocal) return grabber.signatureOfRect(area);
    // The grab follows the window: see grabTargetOf.
    const std::optional<QRectF> frame = grabber.windowFrame(*windowID);
    if (!frame) return std::nullopt;
    return grabber.signatureOfWindowRect(
        *windowID, QRectF(frame->topLeft() + windowLocal->topLeft(), windowLocal->size()));
}

void AreaMonitor::compare(const std::optional<QByteArray>& live, std::chrono::steady_clock::time_point seenAt)
{
    // A tick that can't see the area leaves everything as it was; the streak is timed by the
    // clock, so a failed tick neither breaks nor extends it.
    if (!live) return;
    const double diff = AreaSignature::difference(*referenceSignatureValue, *live);
    setCurrentDiff(diff);

    if (diff > AreaSignature::threshold(sensitivityValue)) {
        setPhase(MonitorPhase::divergent);
        matchStreakStartValue.reset();
        // One divergence episode asks for exactly one recording.
        if (!selfTriggeredRecordingValue) {
            selfTriggeredRecordingValue = true;
            if (onShouldStartRecording)
                onShouldStartRecording(std::max(std::chrono::nanoseconds(0),
                    std::chrono::duration_cast<std::chrono::nanoseconds>(clock() - seenAt)));
        }
        return;
    }

    setPhase(MonitorPhase::matching);
    if (!selfTriggeredRecordingValue) return;
    if (!matchStreakStartValue) {
        matchStreakStartValue = seenAt;
        return;
    }
    if (std::chrono::duration<double>(seenAt - *matchStreakStartValue).count() >= stopDebounce) {
        selfTriggeredRecordingValue = false;
        matchStreakStartValue.reset();
        if (onShouldStopRecording) onShouldStopRecording();
    }
}

std::optional<AreaMonitor::GrabTarget> AreaMonitor::grabTarget()
{
    if (scopedWindowIDValue && windowLocalRectValue)
        return grabTargetOf(rectValue.value_or(QRectF()), scopedWindowIDValue, *windowLocalRectValue);
    if (!rectValue) return std::nullopt;
    return grabTargetOf(*rectValue, std::nullopt, QRectF());
}

std::optional<AreaMonitor::GrabTarget> AreaMonitor::grabTargetOf(
    const QRectF& area, std::optional<uint32_t> windowID, const QRectF& windowLocal)
{
    if (!grabber) return std::nullopt;
    if (windowID) {
        // The grab follows the window: other windows passing in front don't count, and a moved
        // window stays watched.
        const std::optional<QRectF> frame = grabber->windowFrame(*windowID);
        if (!frame) return std::nullopt;
        return GrabTarget { windowID, QRectF(frame->topLeft() + windowLocal.topLeft(), windowLocal.size()) };
    }
    return GrabTarget { std::nullopt, area };
}

std::optional<QImage> AreaMonitor::screenshot()
{
    const std::optional<GrabTarget> target = grabTarget();
    return target ? screenshotOf(*target) : std::nullopt;
}

std::optional<QImage> AreaMonitor::screenshotOf(const GrabTarget& target)
{
    std::optional<QImage> image
        = target.windowID ? grabber->grabWindowRect(*target.windowID, target.area) : grabber->grabRect(target.area);
    if (!image || image->isNull()) return std::nullopt;
    return image;
}

std::optional<QByteArray> AreaMonitor::liveSignature()
{
    const std::optional<GrabTarget> target = grabTarget();
    if (!target) return std::nullopt;
    return target->windowID ? grabber->signatureOfWindowRect(*target->windowID, target->area)
                            : grabber->signatureOfRect(target->area);
}

void AreaMonitor::setPhase(MonitorPhase value)
{
    if (phaseValue == value) return;
    phaseValue = value;
    emit phaseChanged();
}

void AreaMonitor::setCurrentDiff(double value)
{
    if (currentDiffValue == value) return;
    currentDiffValue = value;
    emit currentDiffChanged();
}

void AreaMonitor::setIsArmed(bool value)
{
    if (isArmedValue == value) return;
    isArmedValue = value;
    emit isArmedChanged();
}

void AreaMonitor::setReferenceThumbnail(std::optional<QImage> value)
{
    if (!value && !referenceThumbnailValue) return;
    referenceThumbnailValue = std::move(value);
    emit referenceThumbnailChanged();
}
