#include "monitor/AreaMonitor.h"

#include "monitor/AreaSignature.h"

#include <QTimer>

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
    ++pollGeneration;
    const std::optional<QRectF> old = rectValue;
    rectValue = value;
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
    ++pollGeneration;
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
}

std::optional<AreaMonitor::ArmFailure> AreaMonitor::arm()
{
    if (!rectValue) return ArmFailure::noRect;
    if (!referenceSignatureValue && !captureReference()) return ArmFailure::captureFailed;
    setIsArmed(true);
    setPhase(MonitorPhase::matching);
    matchStreakStartValue.reset();
    selfTriggeredRecordingValue = false;
    startTimer();
    return std::nullopt;
}

void AreaMonitor::disarm()
{
    ++pollGeneration;
    stopTimer();
    setIsArmed(false);
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
    ++pollGeneration;
    referenceSignatureValue = signature;
    setReferenceThumbnail(std::move(image));
    setPhase(isArmedValue ? MonitorPhase::matching : MonitorPhase::idle);
    if (onReferenceChanged) onReferenceChanged(signature);
}

void AreaMonitor::clearReference()
{
    ++pollGeneration;
    referenceSignatureValue.reset();
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
    compare(liveSignature());
}

void AreaMonitor::poll()
{
    if (!rectValue || !referenceSignatureValue || !grabber || pollInFlight) return;
    pollInFlight = true;
    const bool scoped = scopedWindowIDValue && windowLocalRectValue;
    const QRectF area = rectValue.value_or(QRectF());
    const std::optional<uint32_t> windowID = scoped ? scopedWindowIDValue : std::nullopt;
    const std::optional<QRectF> windowLocal = scoped ? windowLocalRectValue : std::nullopt;
    // The grabber outlives the queue's tasks (see `grabs`), and a result posted to a monitor that
    // has gone is discarded with its other posted events.
    grabs.async([this, g = grabber.get(), area, windowID, windowLocal, generation = pollGeneration] {
        std::optional<QByteArray> live = signatureOf(*g, area, windowID, windowLocal);
        QMetaObject::invokeMethod(
            this,
            [this, live = std::move(live), generation] {
                pollInFlight = false;
                if (generation != pollGeneration || !isArmedValue || !rectValue || !referenceSignatureValue) return;
                compare(live);
            },
            Qt::QueuedConnection);
    });
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

void AreaMonitor::compare(const std::optional<QByteArray>& live)
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
            if (onShouldStartRecording) onShouldStartRecording();
        }
        return;
    }

    setPhase(MonitorPhase::matching);
    if (!selfTriggeredRecordingValue) return;
    const auto now = clock();
    if (!matchStreakStartValue) {
        matchStreakStartValue = now;
        return;
    }
    if (std::chrono::duration<double>(now - *matchStreakStartValue).count() >= stopDebounce) {
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

void AreaMonitor::startTimer()
{
    // Arming twice leaves one timer.
    stopTimer();
    timer = new QTimer(this);
    timer->setInterval(std::chrono::milliseconds(static_cast<int>(pollInterval * 1000)));
    connect(timer, &QTimer::timeout, this, &AreaMonitor::poll);
    timer->start();
}

void AreaMonitor::stopTimer()
{
    if (!timer) return;
    // disarm() may be reached from inside the timer's own timeout.
    timer->stop();
    timer->deleteLater();
    timer = nullptr;
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
