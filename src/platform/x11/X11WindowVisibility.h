#pragma once

#include "platform/WindowVisibilityWatcher.h"

#include <QObject>

#include <cstdint>
#include <memory>

class QSocketNotifier;
class XcbConnection;

// Watches one window of ours on a connection of its own: event masks are per client, so asking
// for visibility and structure events here leaves the toolkit's own selection alone. Unmapped
// (minimised) or fully obscured is hidden; mapped and not fully obscured is visible. Without a
// compositor X reports covering exactly; with one, a covered window still counts as visible.
//
// Main thread.
class X11WindowVisibility final : public QObject, public WindowVisibilityWatcher {
public:
    // Null when the display can't be reached.
    static std::unique_ptr<X11WindowVisibility> watch(uint32_t window, Report report);
    ~X11WindowVisibility() override;

private:
    X11WindowVisibility(std::unique_ptr<XcbConnection> connection, Report report);
    void readEvents();

    std::unique_ptr<XcbConnection> connection;
    Report report;
    QSocketNotifier* notifier = nullptr;
    bool mapped = true;
    bool obscured = false;
    bool lastReported = true;
};
