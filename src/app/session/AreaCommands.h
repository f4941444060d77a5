#pragma once

#include "monitor/AreaMonitorActions.h"
#include "platform/AreaPicker.h"

#include <QObject>
#include <QRectF>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class AreaMonitor;
class CaptureEngine;
class SourceMemory;

// What the user does with drawn rectangles and the area monitor: arm and disarm it, give it an area
// to watch, and make a drawn region the capture source. The rules and the words are
// AreaMonitorActions' and RegionPicking's; this class hands them the captured window and the
// displays, and shows what they answer in the controller's toast.
//
// Main thread.
class AreaCommands : public QObject {
    Q_OBJECT

public:
    // From the end of a pick to the picture of the watched area: the time the picker's windows
    // take to leave the screen.
    static constexpr auto pickerLeavesScreen = std::chrono::milliseconds(350);

    // `picker` may be null: then no region can be drawn. `restartStream` is the controller's stream
    // restart, which a newly picked region needs.
    AreaCommands(AreaMonitor& monitor, CaptureEngine& engine, const SourceMemory& sources,
        std::unique_ptr<AreaPicker> picker, std::function<void(const QString&)> showToast,
        std::function<void()> restartStream, QObject* parent = nullptr);

    // What the arm hotkey does: disarm an armed monitor, arm a disarmed one, and say so. Returns
    // the toast it showed.
    QString toggleAreaMonitor();
    // Lets the user draw a region with the area picker and makes it the capture source.
    void pickRecordingRegion();
    // Lets the user draw the area to watch with the area picker and, once the picker has left the
    // screen, watches it (watchArea). A cancelled pick changes nothing, not even the reference.
    // False when there is no picker.
    bool pickWatchArea();
    // Makes a drawn rectangle (global display space) the watched area, tied to the captured window
    // when a window is captured.
    void setPickedAreaRect(const QRectF& rect);
    // What the monitor strip does with a drawn rectangle: setPickedAreaRect, then a new reference;
    // an area on no listed display, or one that can't be grabbed, changes nothing. Shows the toast.
    AreaMonitorActions::WatchResult watchArea(const QRectF& rect);
    // The capture source for a rectangle drawn in global display space, with the toast that says
    // what became of it; the stream restarts on success. What pickRecordingRegion does with the
    // picker's answer.
    void useRecordingRegion(const QRectF& globalRect);

private:
    std::optional<AreaMonitorActions::WindowScope> windowScope() const;

    AreaMonitor* monitor;
    CaptureEngine* engine;
    const SourceMemory* sources;
    std::unique_ptr<AreaPicker> picker;
    std::function<void(const QString&)> showToast;
    std::function<void()> restartStream;
};
