#pragma once

#include "capture/FrameScaler.h"
#include "platform/CaptureBackend.h"
#include "platform/x11/X11Cursor.h"
#include "platform/x11/X11OwnWindowArea.h"
#include "platform/x11/XcbConnection.h"
#include "platform/x11/XcbImageGrabber.h"

#include <xcb/damage.h>
#include <xcb/xfixes.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

// One running screen stream on its own X connection and its own thread.
//
// The thread sleeps on the X connection until the server reports something: damage (XDamage), a
// new cursor shape (XFixes), or pointer motion (XInput 2 raw events, while the cursor is shown).
// Then, on a frame clock, it checks whether the change lies inside the captured area; only then
// does it grab (MIT-SHM), draw the cursor in, fit the picture into the output size and hand the
// frame on. After a look it sleeps out the rest of the frame interval without listening to the
// server, so a screen that changes faster than the frame rate wakes it once a frame. A still
// screen with a still pointer therefore costs next to nothing and delivers nothing. The first
// frame always comes. At ten frames a second or more, the answer to a grab is read at the next
// look rather than waited for, so the server copies the pixels while the thread sleeps; each frame
// keeps the time it was grabbed at.
//
// While the cursor is shown, the pointer is asked where it is with every grab, in the same round
// trip. A pointer warped by a program (XWarpPointer, xdotool) makes no raw motion, so on an
// otherwise still screen it is also asked every `pointerCheckInterval`. Without XInput 2 it is
// asked every interval.
//
// A display stream grabs a rectangle of the root window, and follows the screen when its size
// changes (RandR): the area is placed again and fitted into the same output size. A window stream redirects the window
// with XComposite and grabs its own pixmap: it is right while covered, and it follows moves and resizes. Excluding
// applications from a display is not possible on X11; excludedApplications is ignored. What can be done is done: damage
// that lies wholly inside one of the configuration's own windows (and not under another program's window) is not a
// change, so our windows repainting themselves make no frames; they are in whatever frame something else causes.
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
    // A display stream: places the area to grab on a screen of this size, the display where RandR
    // has it now. The reason when nothing of it is left on the screen.
    QString placeArea(const QRect& screen);
    std::optional<QRect> monitorFrame(uint32_t displayID) const;
    QString nameWindowPixmap();
    void releaseWindowPixmap();
    // The capture thread.
    void run();
    // Reads the queued events; false once the stream can go no further (the reason in *error).
    bool readEvents(QString* error);
    // Whether anything reported since the last look may have changed the picture.
    bool somethingToLookAt() const;
    // Blocks until `deadline` (time_point::max(): no limit), until stop() is called, and, if
    // `wakeOnServer`, until the X connection has something to read; false once stopped.
    bool sleepUntil(std::chrono::steady_clock::time_point deadline, bool wakeOnServer);
    // Looks at what changed and delivers a frame if the picture did.
    void look();
    // Takes the damage reported so far into `changedSinceFrame`; whether any of it lies in the area
    // and is not only our own windows repainting themselves.
    bool damageInsideArea();
    // Adds `rect` (in the drawable's coordinates) to what changed since the last frame delivered.
    void noteChanged(const QRect& rect);
    // Sends the question of where the pointer is; takePointer() reads the answer (and the cursor's
    // picture if it changed) and tells whether the cursor visibly moved or changed.
    xcb_query_pointer_cookie_t askPointer();
    bool takePointer(xcb_query_pointer_cookie_t question);
    // Asks for a grab (and where the pointer is, when the cursor is shown), taken by
    // deliverPendingFrame() at this look or the next one.
    enum class Keep { always, ifCursorChanged };
    void askForFrame(Keep keep);
    void deliverPendingFrame();
    void abandonPendingFrame();
    void reportSkippedGrab();

    // Set up before the thread starts and owned by it afterwards.
    std::unique_ptr<XcbConnection> connection;
    StreamConfiguration configuration;
    std::shared_ptr<const StreamOutput> output;
    bool windowMode = false;
    xcb_window_t window = XCB_NONE;
    xcb_pixmap_t windowPixmap = XCB_NONE;
    QRect area; // in the drawable's coordinates
    CaptureDisplay display; // a display stream's display
    QRect screenRect; // the root window's size, followed as it changes
    xcb_damage_damage_t damage = XCB_NONE;
    xcb_xfixes_region_t damagedRegion = XCB_NONE;
    std::unique_ptr<X11OwnWindowArea> ownWindowArea;
    std::unique_ptr<XcbImageGrabber> grabber;
    FrameScaler scaler;
    X11Cursor cursor;
    bool cursorStale = true;
    bool watchesMotion = false; // raw motion events come; otherwise the pointer is asked every interval
    bool pointerMoved = true; // since the pointer was last asked where it is
    std::chrono::steady_clock::time_point lastPointerCheck;
    static constexpr auto pointerCheckInterval = std::chrono::seconds(2);
    QPoint pointer { -1000000, -1000000 }; // in area coordinates
    bool cursorShownLastFrame = false;
    bool damagePending = true;
    bool forceFrame = true; // the first frame, and the first after a resize or a map
    // What changed in the area (in the picture's coordinates) since the grab of the last frame
    // asked for: the damage of the frames to come. Unknown after a resize, a map or a failed read.
    FrameChanges changedSinceFrame;
    uint64_t framesDelivered = 0;
    QRect lastCursorRect; // where the cursor was painted into the last frame delivered, if it was
    // Grabs skipped because every picture was still held further on, since the last log line.
    int skippedGrabs = 0;
    std::chrono::steady_clock::time_point lastSkipReport;

    struct PendingFrame {
        XcbImageGrabber::Request request;
        std::optional<xcb_query_pointer_cookie_t> pointerQuestion;
        int64_t grabbedAt = 0;
        Keep keep = Keep::always;
        FrameChanges changes; // since the frame before it
    };
    std::optional<PendingFrame> pendingFrame;
    bool readsAnswersAtNextLook = false;

    // An eventfd that stop() writes once; the capture thread sleeps on it and on the X connection.
    int stopSignal = -1;
    std::thread thread;
};
