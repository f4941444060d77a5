#include "monitor/AreaMonitorActions.h"

namespace AreaMonitorActions {

namespace {

QString grabFailedText()
{
    return QStringLiteral("Couldn't grab that area — check Screen Recording permission.");
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

WatchResult watchArea(AreaMonitor& monitor, const QRectF& rect, const std::optional<WindowScope>& scope)
{
    setPickedAreaRect(monitor, rect, scope);
    if (monitor.captureReference()) return { true, QStringLiteral("Watch area captured") };
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
