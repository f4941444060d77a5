#pragma once

#include "monitor/AreaMonitor.h"

#include <QRectF>
#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

// The controller's side of the area monitor, kept here as functions so that the controller's
// operations are one call each and the texts live beside the behaviour they describe. Main thread.
namespace AreaMonitorActions {

// The window being captured, when the capture source is a window.
struct WindowScope {
    uint32_t windowID = 0;
    // Global display space, points.
    QRectF frame;
};

// Gives the monitor a rectangle the user drew: tied to the window when one is captured, a plain
// screen rectangle otherwise.
void setPickedAreaRect(AreaMonitor& monitor, const QRectF& rect, const std::optional<WindowScope>& scope);

struct WatchResult {
    bool captured = false;
    // "Watch area captured", or why not.
    QString toast;
};

// Makes `rect` the watched area, as setPickedAreaRect does, with a fresh reference of it. A
// rectangle that overlaps none of `displays` (global display space), or whose picture can't be
// had, is refused and the monitor keeps its area and reference.
WatchResult watchArea(AreaMonitor& monitor, const QRectF& rect, const std::optional<WindowScope>& scope,
    const std::vector<QRectF>& displays);

// Arms a disarmed monitor and disarms an armed one; returns the toast to show.
QString toggle(AreaMonitor& monitor);

// "Pick an area first." / "Couldn't grab that area — …"
QString armFailureMessage(AreaMonitor::ArmFailure failure);

// What the controller does when the monitor asks for a recording: start one only if none runs.
// Returns the toast, or none when nothing was started (a recording started by hand goes on, with
// no word).
std::optional<QString> startRequested(bool isRecording, const std::function<void()>& startRecording);
// And when the monitor asks for the stop: stop only a running recording.
std::optional<QString> stopRequested(bool isRecording, const std::function<void()>& stopRecording);

} // namespace AreaMonitorActions
