#pragma once

#include "capture/CaptureBackend.h"
#include "capture/FrameScaler.h"
#include "platform/x11/X11Cursor.h"
#include "platform/x11/XcbConnection.h"
#include "platform/x11/XcbImageGrabber.h"

#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

// One running screen stream on its own X connection and its own thread.
//
// At most once per frame interval the thread looks at what XDamage reported; only when something
// inside the captured area changed (or the shown cursor moved or changed shape) does it grab
// (MIT-SHM), draw the cursor in, fit the picture into the output size and hand the frame on. A still
// screen therefore costs one wake-up per interval and delivers nothing. The first frame always comes.
//
// A display stream grabs a rectangle of the root window. A window stream redirects the window with
// XComposite and grabs its own pixmap: it is right while covered, and it follows moves and resizes.
// Excluding applications from a display is not possible on X11; excludedApplications is ignored.
class X11CaptureStream : public CaptureStream {
public:
    // Main thread. Sets everything up here, so that a failure comes back as the reason, then starts
    // the capture thread.
    static CaptureBackend::StreamStart start(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output);
    ~X11CaptureStream() override;

    // Main thread. Joins the capture thread; the X connection and everything made on it go with it.
    void stop() override;

private:
    X11CaptureStream() = default;

    QString setUp(const ContentFilter& filter);
    QString nameWindowPixmap();
    void releaseWindowPixmap();
    // The capture thread.
    void run();
    // Reads the queued events; false once the stream can go no further (the reason in *error).
    bool readEvents(QString* error);
    bool damageInsideArea();
    bool refreshCursor(bool* moved);
    void deliver();

    // Set up before the thread starts and owned by it afterwards.
    std::unique_ptr<XcbConnection> connection;
    StreamConfiguration configuration;
    std::shared_ptr<const StreamOutput> output;
    bool windowMode = false;
    xcb_window_t window = XCB_NONE;
    xcb_pixmap_t windowPixmap = XCB_NONE;
    QRect area; // in the drawable's coordinates
    xcb_damage_damage_t damage = XCB_NONE;
    xcb_xfixes_region_t damagedRegion = XCB_NONE;
    std::unique_ptr<XcbImageGrabber> grabber;
    FrameScaler scaler;
    X11Cursor cursor;
    bool cursorStale = true;
    QPoint pointer { -1000000, -1000000 }; // in area coordinates
    bool cursorShownLastFrame = false;
    bool damagePending = true;
    bool forceFrame = true; // the first frame, and the first after a resize or a map

    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false; // guarded by mutex
    std::thread thread;
};
