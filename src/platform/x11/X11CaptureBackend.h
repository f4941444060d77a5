#pragma once

#include "platform/CaptureBackend.h"

#include <QSize>
#include <QString>

#include <deque>
#include <memory>
#include <mutex>

class ApplicationNames;
class XcbConnection;
class XcbImageGrabber;

// The screen of an X11 session, through XCB: RandR monitors are the displays, the EWMH client list
// (or, without a window manager, the mapped top-level windows with a WM_CLASS) the windows, and
// each stream runs on an X connection and thread of its own (X11CaptureStream).
//
// Hiding this program from its own recording is not possible here: X11 cannot leave one
// application's windows out of a grab of the root window. So the content lists no excludable
// applications, the engine finds no own application, and a display capture is unfiltered.
//
// Display identifiers are the RandR output of each monitor (its first), or the monitor's name atom
// for a monitor without outputs. Points are pixels: the X server has one scale.
//
// Thread-safe: the listing and single grabs share one connection under a lock.
class X11CaptureBackend : public CaptureBackend {
public:
    X11CaptureBackend();
    ~X11CaptureBackend() override;

    // Whether the display of DISPLAY can be opened and offers what capture needs; the reason if not.
    static QString probe();

    ContentResult shareableContent() override;
    WindowListFilter::SystemRules systemWindowRules() const override;
    StreamStart startCapture(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output) override;
    std::optional<QRectF> windowFrame(uint32_t windowID) override;
    std::optional<QImage> grabRect(const QRectF& globalRect) override;
    std::optional<QImage> grabWindowRect(uint32_t windowID, const std::optional<QRectF>& globalRect) override;
    // Through shared memory, without a copy on this side, when the rectangle lies wholly on the
    // screen (or in the window); otherwise as grabRect and grabWindowRect.
    std::optional<QImage> peekRect(const QRectF& globalRect) override;
    std::optional<QImage> peekWindowRect(uint32_t windowID, const QRectF& globalRect) override;

private:
    // Under `mutex`: the shared connection, opened (again) when needed; null with *error if it can't be.
    XcbConnection* connectionLocked(QString* error);
    std::vector<CaptureDisplay> displaysLocked();
    // Discards what piled up in the shared connection's event queue (errors of vanished windows).
    void drainLocked();
    // Under `mutex`: keeps `window` redirected so that its pixmap holds its own pixels; only the
    // few most recently grabbed windows stay so.
    bool redirectLocked(uint32_t window, QSize size);
    // Under `mutex`: the window's frame, the window kept redirected; none if it is gone.
    std::optional<QRect> redirectedFrameLocked(uint32_t window);
    // Under `mutex`: `rect` (window coordinates) of the window's own pixels.
    std::optional<QImage> windowPixelsLocked(uint32_t window, const QRect& rect, XcbImageGrabber& grabber);
    // Under `mutex`: the grabber of peeks, on the present connection.
    XcbImageGrabber& peekGrabberLocked();

    std::mutex mutex;
    std::unique_ptr<XcbConnection> connection; // guarded by mutex
    // Guarded by mutex; made on `connection` and gone before it.
    std::unique_ptr<XcbImageGrabber> peekGrabber;
    std::unique_ptr<ApplicationNames> names; // guarded by mutex
    std::deque<uint32_t> redirectedWindows; // guarded by mutex, most recent last
};
