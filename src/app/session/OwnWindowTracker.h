#pragma once

#include <QObject>

#include <cstdint>
#include <functional>
#include <vector>

// Tells `report` the native ids of this program's visible top-level windows (the main window,
// popovers, overlays) whenever one is shown or hidden, so that a display capture can tell our own
// repaints from changes of the screen.
//
// Main thread. Watches every window of the application through an event filter.
class OwnWindowTracker : public QObject {
public:
    explicit OwnWindowTracker(std::function<void(std::vector<uint32_t>)> report, QObject* parent = nullptr);

    // The visible top-level windows that have a native window now.
    static std::vector<uint32_t> visibleWindows();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::function<void(std::vector<uint32_t>)> report;
    std::vector<uint32_t> reported;
    bool scheduled = false;
};
