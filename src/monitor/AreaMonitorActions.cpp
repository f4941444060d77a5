#include "monitor/AreaMonitorActions.h"

#include <QStringList>

#include <algorithm>

namespace AreaMonitorActions {

namespace {

// X11 has no capture permission: a grab fails when the display server has no picture to give.
QString grabFailedText()
{
    return QStringLiteral("Couldn't grab that area — the display server gave no picture of it.");
}

QString offDisplaysText(const std::vector<QRectF>& displays)
{
    QStringList frames;
    for (const QRectF& d : displays)
        frames << QStringLiteral("%1x%2+%3+%4").arg(d.width()).arg(d.height()).arg(d.x()).arg(d.y());
    return QStringLiteral("That area is on no display (displays: %1).")
        .arg(frames.isEmpty() ? QStringLiteral("none found") : frames.join(QStringLiteral(", ")));
}

} // namespace

void setPickedAreaRect(AreaMonitor& monitor, const QRectF& rect, const std::optional<WindowScope>& scope)
{
    if (scope) {
        monitor.setRect(rect, scope->windowID, scope->frame);
        return;
    }
    monitor.clearWindowScope();
    monitor.setRect(std::optional<QRectF>(rect));
}

WatchResult watchArea(AreaMonitor& monitor, const QRectF& rect, const std::optional<WindowScope>& scope,
    const std::vector<QRectF>& displays)
{
    // Off every display a grab would still give a picture, all black, and nothing would ever change.
    if (std::none_of(displays.begin(), displays.end(), [&](const QRectF& d) { return d.intersects(rect); }))
        return { false, offDisplaysText(displays) };
    const bool captured = scope ? monitor.captureReferenceOf(rect, scope->windowID, scope->frame)
                                : monitor.captureReferenceOf(rect, std::nullopt, std::nullopt);
    if (captured) return { true, QStringLiteral("Watch area captured") };
    return { false, grabFailedText() };
}

QString toggle(AreaMonitor& monitor)
{
    if (monitor.isArmed()) {
        monitor.disarm();
        return QStringLiteral("Area monitor disarmed");
    }
    if (const auto failure = monitor.arm()) return armFailureMessage(*failure);
    return monitor.isArmed() ? QStringLiteral("Area monitor armed") : QString();
}

QString armFailureMessage(AreaMonitor::ArmFailure failure)
{
    switch (failure) {
    case AreaMonitor::ArmFailure::noRect:
        return QStringLiteral("Pick an area first.");
    case AreaMonitor::ArmFailure::captureFailed:
        return grabFailedText();
    }
    return {};
}

std::optional<QString> startRequested(bool isRecording, const std::function<void()>& startRecording)
{
    if (isRecording) return std::nullopt;
    startRecording();
    return QStringLiteral("Area changed — recording…");
}

std::optional<QString> stopRequested(bool isRecording, const std::function<void()>& stopRecording)
{
    if (!isRecording) return std::nullopt;
    stopRecording();
    return QStringLiteral("Area back to default — saving…");
}

} // namespace AreaMonitorActions
