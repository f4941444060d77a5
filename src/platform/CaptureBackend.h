#pragma once

#include "capture/ContentFilter.h"
#include "capture/ShareableContent.h"
#include "capture/StreamConfiguration.h"
#include "capture/StreamOutput.h"
#include "capture/WindowListFilter.h"
#include "platform/CaptureStream.h"

#include <QImage>
#include <QRectF>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

// The platform's screen: what can be captured, a running capture stream, and single grabs.
// Implementations: X11CaptureBackend (src/platform/x11), WaylandCaptureBackend (src/platform/wayland),
// NullCaptureBackend (no screen to capture).
//
// Every operation may be called from any thread; the blocking ones say so.
class CaptureBackend {
public:
    struct ContentResult {
        std::optional<ShareableContent> content;
        QString error; // the reason, when there is no content
    };
    struct StreamStart {
        std::unique_ptr<CaptureStream> stream;
        QString error; // the reason, when there is no stream
    };

    virtual ~CaptureBackend() = default;

    // Blocking. Displays, windows (on screen or not, unfiltered) and excludable applications.
    virtual ContentResult shareableContent() = 0;
    // The platform's own furniture, for WindowListFilter.
    virtual WindowListFilter::SystemRules systemWindowRules() const = 0;
    // Whether the desktop asks the user's permission before a capture (a screen-sharing portal
    // does; an X server never does), so that a refusal is worth explaining to the user.
    virtual bool asksCapturePermission() const { return false; }
    // Whether the desktop's own dialog chooses what is captured (a screen-sharing portal): there
    // are no lists of displays and windows to pick from, only the one source the desktop shares.
    virtual bool desktopChoosesSource() const { return false; }
    // The next listing or capture has the desktop ask the user again what to share, even where it
    // could restore the last choice without asking. Any thread.
    virtual void chooseSourceAgain() { }
    // Something the user should hear about that is not a failure (the desktop asked again what to
    // share, and why). Called on any thread; set before the first capture.
    virtual void setOnNotice(std::function<void(const QString&)>) { }

    // Starts a stream on a thread of its own; frames go to `output->didOutputFrame`, and a stream
    // that dies calls `output->didStopWithError` once. Audio is not the backend's business: the
    // engine pairs the stream with a SystemAudioBackend.
    virtual StreamStart startCapture(const ContentFilter& filter, const StreamConfiguration& configuration,
        std::shared_ptr<const StreamOutput> output)
        = 0;

    // Blocking. A window's present frame in global display space, or none if it is gone.
    virtual std::optional<QRectF> windowFrame(uint32_t windowID) = 0;
    // Blocking. What the screen shows in `globalRect` (points), one pixel a point; parts outside
    // every display are black. None on failure.
    virtual std::optional<QImage> grabRect(const QRectF& globalRect) = 0;
    // Blocking. One window's own pixels, unaffected by whatever covers it: the part under
    // `globalRect`, or the whole window without one. None on failure or if the window is gone.
    virtual std::optional<QImage> grabWindowRect(uint32_t windowID, const std::optional<QRectF>& globalRect) = 0;

    // Blocking. The same pixels as grabRect and grabWindowRect, for a caller that reads them and
    // lets go, keeping at most the last one: the picture may be a view on the backend's own memory,
    // held until the last copy of it is gone, and the fourth byte of each RGB32 pixel is undefined.
    // What costs nothing here is what a grab four times a second must not pay for: copies, and
    // filling the alpha.
    virtual std::optional<QImage> peekRect(const QRectF& globalRect) { return grabRect(globalRect); }
    virtual std::optional<QImage> peekWindowRect(uint32_t windowID, const QRectF& globalRect)
    {
        return grabWindowRect(windowID, globalRect);
    }
};
