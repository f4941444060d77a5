#include "platform/x11/X11CaptureStream.h"

#include "capture/OwnWindows.h"
#include "core/Log.h"
#include "core/MediaTime.h"
#include "platform/x11/XInputSelection.h"

#include <xcb/composite.h>
#include <xcb/randr.h>
#include <xcb/xinput.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace {

// Frames are read as 32 bits a pixel; other layouts (16-bit displays) are not supported.
int bitsPerPixel(xcb_connection_t* c, uint8_t depth)
{
    xcb_format_iterator_t it = xcb_setup_pixmap_formats_iterator(xcb_get_setup(c));
    for (; it.rem; xcb_format_next(&it))
        if (it.data->depth == depth) return it.data->bits_per_pixel;
    return 0;
}

bool requestFailed(xcb_connection_t* c, xcb_void_cookie_t cookie)
{
    XcbReply<xcb_generic_error_t> error(xcb_request_check(c, cookie));
    return error != nullptr;
}

} // namespace

CaptureBackend::StreamStart X11CaptureStream::start(
    const ContentFilter& filter, const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output)
{
    std::unique_ptr<X11CaptureStream> stream(new X11CaptureStream);
    QString error;
    stream->connection = XcbConnection::open(&error);
    if (!stream->connection) return { nullptr, error };
    stream->configuration = configuration;
    stream->output = std::move(output);
    stream->stopSignal = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (stream->stopSignal < 0) return { nullptr, QStringLiteral("cannot make an event descriptor") };
    if (QString failed = stream->setUp(filter); !failed.isEmpty()) {
        stream->stop();
        return { nullptr, failed };
    }
    stream->thread = std::thread([s = stream.get()] { s->run(); });
    pthread_setname_np(stream->thread.native_handle(), "capture.video");
    return { std::move(stream), {} };
}

X11CaptureStream::~X11CaptureStream()
{
    stop();
    if (stopSignal >= 0) ::close(stopSignal);
}

QString X11CaptureStream::setUp(const ContentFilter& filter)
{
    xcb_connection_t* c = connection->get();
    const XcbConnection::Extensions& ext = connection->extensions();
    if (!ext.damage) return QStringLiteral("the X server lacks the DAMAGE extension");
    if (!ext.xfixes) return QStringLiteral("the X server lacks the XFIXES extension");

    xcb_drawable_t drawable = connection->root();
    if (filter.kind == ContentFilter::Kind::window) {
        if (!ext.composite) return QStringLiteral("the X server lacks the Composite extension");
        windowMode = true;
        window = filter.window.windowID;
        XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
        if (!geometry) return QStringLiteral("the window is gone");
        if (bitsPerPixel(c, geometry->depth) != 32)
            return QStringLiteral("windows of depth %1 are not supported").arg(geometry->depth);
        area = QRect(0, 0, geometry->width, geometry->height);
        const uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        if (requestFailed(c, xcb_change_window_attributes_checked(c, window, XCB_CW_EVENT_MASK, &events)))
            return QStringLiteral("the window is gone");
        // Automatic redirection keeps the window's own pixels off screen, where nothing covers them,
        // while the server still shows it as before.
        if (requestFailed(c, xcb_composite_redirect_window_checked(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC)))
            return QStringLiteral("the window cannot be redirected");
        // The parts that were covered until now hold what covered them: ask the application to
        // paint the whole window again.
        connection->requestRepaint(window, geometry->width, geometry->height);
        nameWindowPixmap();
        drawable = window;
    } else {
        if (bitsPerPixel(c, connection->screen().root_depth) != 32)
            return QStringLiteral("displays of depth %1 are not supported").arg(connection->screen().root_depth);
        display = filter.display;
        if (QString failed = placeArea(connection->screenRect()); !failed.isEmpty()) return failed;
        // The root window reports a change of the screen's size (RandR) as a new configuration.
        const uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(c, connection->root(), XCB_CW_EVENT_MASK, &events);
    }

    damage = xcb_generate_id(c);
    if (requestFailed(c, xcb_damage_create_checked(c, damage, drawable, XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY))) {
        damage = XCB_NONE;
        return QStringLiteral("cannot watch the screen for changes");
    }
    ownWindowArea = std::make_unique<X11OwnWindowArea>(c, connection->root());
    damagedRegion = xcb_generate_id(c);
    xcb_xfixes_create_region(c, damagedRegion, 0, nullptr);
    if (configuration.showsCursor) {
        xcb_xfixes_select_cursor_input(c, connection->root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
        // Raw motion on the root window reports every pointer move, whoever has the focus.
        if (ext.xinput2) watchesMotion = selectXInputEvents(c, connection->root(), XCB_INPUT_XI_EVENT_MASK_RAW_MOTION);
    }
    // As many shared pictures as frames may wait further on: when all are held (an encoder that
    // cannot keep up), a frame is skipped here, before it costs a grab, rather than read through
    // the socket into yet another picture. That bounds the memory a busy recorder holds.
    grabber = std::make_unique<XcbImageGrabber>(
        c, ext.shm, std::max(2, configuration.queueDepth), XcbImageGrabber::WhenPoolIsFull::skip);
    xcb_flush(c);
    return {};
}

QString X11CaptureStream::placeArea(const QRect& screen)
{
    screenRect = screen;
    // Where the display lies now. One that RandR no longer lists (a screen made smaller than the
    // monitor turns it off) keeps the place it was listed at, cut to the screen that is left.
    QRect displayRect = display.frame.isEmpty() ? screenRect : display.frame;
    if (!display.frame.isEmpty() && connection->extensions().randrMonitors) {
        if (const std::optional<QRect> now = monitorFrame(display.displayID)) displayRect = *now;
    }
    QRect wanted = displayRect;
    if (configuration.sourceRect)
        wanted = configuration.sourceRect->toAlignedRect().translated(displayRect.topLeft()) & displayRect;
    wanted &= screenRect;
    if (wanted.isEmpty()) return QStringLiteral("the area to capture lies outside the screen");
    area = wanted;
    return {};
}

std::optional<QRect> X11CaptureStream::monitorFrame(uint32_t displayID) const
{
    xcb_connection_t* c = connection->get();
    XcbReply<xcb_randr_get_monitors_reply_t> monitors(
        xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection->root(), 1), nullptr));
    if (!monitors) return std::nullopt;
    for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem; xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t* m = it.data;
        // Identified as the capture backend lists it: by its first output, or its name without one.
        const int outputs = xcb_randr_monitor_info_outputs_length(m);
        if ((outputs > 0 ? xcb_randr_monitor_info_outputs(m)[0] : m->name) == displayID)
            return QRect(m->x, m->y, m->width, m->height);
    }
    return std::nullopt;
}

QString X11CaptureStream::nameWindowPixmap()
{
    releaseWindowPixmap();
    xcb_connection_t* c = connection->get();
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    // Refused while the window is unmapped (it has no pixels then); the next map names it again.
    if (requestFailed(c, xcb_composite_name_window_pixmap_checked(c, window, pixmap)))
        return QStringLiteral("the window is not mapped");
    windowPixmap = pixmap;
    return {};
}

void X11CaptureStream::releaseWindowPixmap()
{
    if (windowPixmap != XCB_NONE) xcb_free_pixmap(connection->get(), windowPixmap);
    windowPixmap = XCB_NONE;
}

void X11CaptureStream::stop()
{
    if (thread.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(stopSignal, &one, sizeof one);
        thread.join();
    }
    if (grabber) abandonPendingFrame();
    if (!connection || connection->isBroken()) return;
    // Disconnecting would free all of this too; saying so keeps the server tidy while we stay
    // connected, and the window unredirected at once.
    xcb_connection_t* c = connection->get();
    grabber.reset();
    releaseWindowPixmap();
    if (damage != XCB_NONE) xcb_damage_destroy(c, damage);
    if (damagedRegion != XCB_NONE) xcb_xfixes_destroy_region(c, damagedRegion);
    if (windowMode) xcb_composite_unredirect_window(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
    damage = XCB_NONE;
    damagedRegion = XCB_NONE;
    windowMode = false;
    xcb_flush(c);
}

void X11CaptureStream::run()
{
    using Clock = std::chrono::steady_clock;
    const MediaTime& frameInterval = configuration.minimumFrameInterval;
    const auto interval = std::chrono::nanoseconds(frameInterval.isNumeric() && frameInterval.value > 0
            ? frameInterval.value * 1'000'000'000 / frameInterval.timescale
            : 1'000'000'000 / 60);
    // At ten frames a second or more, a grab is asked for at one look and its answer read at the
    // next: the server copies the pixels while this thread sleeps, and no wake-up waits for it.
    // The frame reaches the recorder one interval later, with the time it was grabbed at.
    readsAnswersAtNextLook = interval <= std::chrono::milliseconds(100);
    // Looks keep to a frame clock: while the picture keeps changing they come exactly one interval
    // apart, however late each wake-up was.
    auto nextLook = Clock::now();
    for (;;) {
        // Everything the server has sent so far, read before sleeping: replies read while grabbing
        // may have queued events that the descriptor will not announce again.
        QString error;
        if (!readEvents(&error)) {
            output->didStopWithError(error);
            return;
        }
        const auto now = Clock::now();
        const bool pointerDue = configuration.showsCursor && now >= lastPointerCheck + pointerCheckInterval;
        if (somethingToLookAt() || pointerDue) {
            if (now >= nextLook) {
                nextLook = now - nextLook < interval ? nextLook + interval : now + interval;
                look();
                continue;
            }
            // Not before the next frame is due: the thread sleeps through the rest of the interval
            // without listening to the server, so changes that come faster than the frame rate
            // wake it once a frame, not once a change.
            if (!sleepUntil(nextLook, false)) return;
            continue;
        }
        const auto wakeAt
            = configuration.showsCursor ? lastPointerCheck + pointerCheckInterval : Clock::time_point::max();
        if (!sleepUntil(wakeAt, true)) return;
    }
}

bool X11CaptureStream::somethingToLookAt() const
{
    return forceFrame || damagePending || pendingFrame
        || (configuration.showsCursor && (cursorStale || pointerMoved || !watchesMotion));
}

bool X11CaptureStream::sleepUntil(std::chrono::steady_clock::time_point deadline, bool wakeOnServer)
{
    pollfd fds[2] = { { stopSignal, POLLIN, 0 }, { xcb_get_file_descriptor(connection->get()), POLLIN, 0 } };
    for (;;) {
        timespec timeout {};
        const bool noLimit = deadline == std::chrono::steady_clock::time_point::max();
        if (!noLimit) {
            const auto left
                = std::max(deadline - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration::zero());
            const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
            timeout = { time_t(ns / 1'000'000'000), long(ns % 1'000'000'000) };
        }
        const int n = ::ppoll(fds, wakeOnServer ? 2 : 1, noLimit ? nullptr : &timeout, nullptr);
        if (n < 0 && errno == EINTR) continue;
        return !(n > 0 && (fds[0].revents & POLLIN));
    }
}

void X11CaptureStream::look()
{
    // The frame asked for at the last look comes first: it was grabbed before anything seen now.
    if (pendingFrame) deliverPendingFrame();
    bool pictureChanged = forceFrame;
    // After a resize or a map the picture is new as a whole.
    if (forceFrame) changedSinceFrame.known = false;
    if (damagePending) {
        damagePending = false;
        pictureChanged = damageInsideArea() || pictureChanged;
    }
    if (pictureChanged) {
        askForFrame(Keep::always);
    } else if (configuration.showsCursor && (pointerMoved || cursorStale || !watchesMotion)) {
        // Only the pointer may have changed. The grab goes out with the question anyway, so that
        // one round trip answers both, and the frame is kept only if the cursor visibly changed.
        askForFrame(Keep::ifCursorChanged);
    } else if (configuration.showsCursor
        && std::chrono::steady_clock::now() >= lastPointerCheck + pointerCheckInterval) {
        // A warped pointer makes no motion events: on a still screen it is asked now and then.
        if (takePointer(askPointer())) askForFrame(Keep::always);
    }
    if (pendingFrame && !readsAnswersAtNextLook) deliverPendingFrame();
}

bool X11CaptureStream::readEvents(QString* error)
{
    xcb_connection_t* c = connection->get();
    const XcbConnection::Extensions& ext = connection->extensions();
    // One read of the socket; what came with it is taken from the queue without reading again.
    bool read = false;
    while (
        xcb_generic_event_t* raw = std::exchange(read, true) ? xcb_poll_for_queued_event(c) : xcb_poll_for_event(c)) {
        XcbReply<xcb_generic_event_t> event(raw);
        const uint8_t type = event->response_type & 0x7f;
        if (type == ext.damageFirstEvent + XCB_DAMAGE_NOTIFY) {
            damagePending = true;
        } else if (type == ext.xfixesFirstEvent + XCB_XFIXES_CURSOR_NOTIFY) {
            cursorStale = true;
        } else if (type == XCB_GE_GENERIC) {
            const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(raw);
            if (generic->extension == ext.xinputOpcode && generic->event_type == XCB_INPUT_RAW_MOTION)
                pointerMoved = true;
        } else if (windowMode && type == XCB_CONFIGURE_NOTIFY) {
            const auto* configure = reinterpret_cast<const xcb_configure_notify_event_t*>(raw);
            // A resized window gets new off-screen storage, which must be named again.
            if (configure->window == window
                && (configure->width != area.width() || configure->height != area.height())) {
                area = QRect(0, 0, configure->width, configure->height);
                nameWindowPixmap();
                forceFrame = true;
            }
        } else if (!windowMode && type == XCB_CONFIGURE_NOTIFY) {
            const auto* configure = reinterpret_cast<const xcb_configure_notify_event_t*>(raw);
            // The screen changed size: grabs of the old area would fail from now on, and the picture
            // would stand still. The area is placed again and fitted into the same output size.
            if (configure->window == connection->root()
                && (configure->width != screenRect.width() || configure->height != screenRect.height())) {
                const QRect before = area;
                if (QString failed = placeArea(QRect(0, 0, configure->width, configure->height)); !failed.isEmpty()) {
                    *error = failed;
                    return false;
                }
                if (area != before)
                    logLine(QStringLiteral("The screen is now %1x%2: capturing %3x%4 at %5,%6")
                                .arg(configure->width)
                                .arg(configure->height)
                                .arg(area.width())
                                .arg(area.height())
                                .arg(area.x())
                                .arg(area.y()));
                // A grab asked for before the change may have been refused; the next one is not.
                forceFrame = true;
            }
        } else if (windowMode && type == XCB_MAP_NOTIFY) {
            nameWindowPixmap();
            forceFrame = true;
        } else if (windowMode && type == XCB_DESTROY_NOTIFY) {
            *error = QStringLiteral("the window was closed");
            return false;
        }
    }
    if (connection->isBroken()) {
        *error = QStringLiteral("the connection to the X server was lost");
        return false;
    }
    return true;
}

bool X11CaptureStream::damageInsideArea()
{
    xcb_connection_t* c = connection->get();
    const std::vector<uint32_t> ours
        = (!windowMode && configuration.ownWindows) ? configuration.ownWindows->get() : std::vector<uint32_t> {};
    // Taking the damage away re-arms the report, so a change after this grab makes a new frame.
    // Its rectangles say what the frame changed, so that only those parts are converted again.
    xcb_damage_subtract(c, damage, XCB_NONE, damagedRegion);
    const xcb_xfixes_fetch_region_cookie_t question = xcb_xfixes_fetch_region(c, damagedRegion);
    const std::vector<QRect> ownRects = ours.empty() ? std::vector<QRect> {} : ownWindowArea->uncoveredRects(ours);
    XcbReply<xcb_xfixes_fetch_region_reply_t> region(xcb_xfixes_fetch_region_reply(c, question, nullptr));
    if (!region) {
        changedSinceFrame.known = false;
        return true;
    }
    const xcb_rectangle_t* rects = xcb_xfixes_fetch_region_rectangles(region.get());
    const int count = xcb_xfixes_fetch_region_rectangles_length(region.get());
    bool inside = false;
    for (int i = 0; i < count; ++i) {
        const QRect damaged = QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height) & area;
        if (damaged.isEmpty()) continue;
        noteChanged(damaged);
        // Our own window repainting itself (the preview of this very screen, a toast) changes
        // nothing worth a frame: it is in the next frame that something else causes.
        const bool ownRepaint
            = std::any_of(ownRects.begin(), ownRects.end(), [&](const QRect& own) { return own.contains(damaged); });
        if (!ownRepaint) inside = true;
    }
    return inside;
}

void X11CaptureStream::noteChanged(const QRect& rect)
{
    std::vector<QRect>& rects = changedSinceFrame.rects;
    rects.push_back(rect.translated(-area.topLeft()));
    // A screen full of small changes is as well converted in one piece as in hundreds.
    constexpr size_t mostRects = 64;
    if (rects.size() > mostRects) {
        QRect all;
        for (const QRect& r : rects)
            all |= r;
        rects.assign(1, all);
    }
}

xcb_query_pointer_cookie_t X11CaptureStream::askPointer()
{
    lastPointerCheck = std::chrono::steady_clock::now();
    pointerMoved = false;
    return xcb_query_pointer(connection->get(), windowMode ? window : connection->root());
}

bool X11CaptureStream::takePointer(xcb_query_pointer_cookie_t question)
{
    xcb_connection_t* c = connection->get();
    XcbReply<xcb_query_pointer_reply_t> reply(xcb_query_pointer_reply(c, question, nullptr));
    bool newImage = false;
    if (cursorStale) {
        const uint32_t before = cursor.serial();
        cursorStale = !cursor.refreshImage(c);
        newImage = !cursorStale && cursor.serial() != before;
    }
    if (!reply) return false;
    const QPoint now
        = windowMode ? QPoint(reply->win_x, reply->win_y) : QPoint(reply->root_x - area.x(), reply->root_y - area.y());
    const bool visible
        = reply->same_screen && cursor.hasImage() && cursor.placement(now).intersects(QRect(QPoint(0, 0), area.size()));
    const bool moved = (visible || cursorShownLastFrame) && (now != pointer || newImage);
    pointer = now;
    return moved;
}

void X11CaptureStream::askForFrame(Keep keep)
{
    if (windowMode && windowPixmap == XCB_NONE) return;
    PendingFrame frame;
    frame.keep = keep;
    // The pointer's question goes out with the grab and is answered in the same round trip.
    if (configuration.showsCursor) frame.pointerQuestion = askPointer();
    frame.grabbedAt = monotonicNanoseconds();
    const std::optional<XcbImageGrabber::Request> request
        = grabber->ask(windowMode ? windowPixmap : connection->root(), area);
    if (!request) {
        // Every picture is still held further on: the next look asks again, so that the latest
        // change, or the cursor's, still arrives once the pipeline has caught up.
        const bool cursorMoved = frame.pointerQuestion && takePointer(*frame.pointerQuestion);
        if (keep == Keep::always || cursorMoved) {
            forceFrame = true;
            reportSkippedGrab();
        }
        return;
    }
    frame.request = *request;
    // The grab holds every change reported so far; later ones belong to the next frame.
    frame.changes = std::exchange(changedSinceFrame, FrameChanges { 0, true, {} });
    pendingFrame = frame;
    xcb_flush(connection->get());
}

void X11CaptureStream::reportSkippedGrab()
{
    // Counted, and told at most every ten seconds, so that a recorder behind its screen shows in
    // the log without a line a frame.
    ++skippedGrabs;
    output->didSkipFrame();
    const auto now = std::chrono::steady_clock::now();
    if (now - lastSkipReport < std::chrono::seconds(10)) return;
    const int skipped = std::exchange(skippedGrabs, 0);
    logLine((skipped == 1 ? QStringLiteral("Capture skipped a frame")
                          : QStringLiteral("Capture skipped %1 frames").arg(skipped))
        + QStringLiteral(": every picture was still waiting for the recorder"));
    lastSkipReport = now;
}

void X11CaptureStream::abandonPendingFrame()
{
    if (!pendingFrame) return;
    grabber->abandon(pendingFrame->request);
    changedSinceFrame.known = false;
    if (pendingFrame->pointerQuestion) xcb_discard_reply(connection->get(), pendingFrame->pointerQuestion->sequence);
    pendingFrame.reset();
}

void X11CaptureStream::deliverPendingFrame()
{
    const PendingFrame frame = *std::exchange(pendingFrame, std::nullopt);
    // With MIT-SHM the picture is a view on shared memory of its own: the cursor is drawn straight
    // into it, and at the output size it goes on without a copy.
    std::optional<QImage> picture = grabber->take(frame.request);
    const bool cursorChanged = frame.pointerQuestion && takePointer(*frame.pointerQuestion);
    FrameChanges changes = frame.changes;
    // No frame: what it changed is still to come, with the next one.
    auto giveBack = [&] {
        changedSinceFrame.known = changedSinceFrame.known && changes.known;
        changedSinceFrame.rects.insert(changedSinceFrame.rects.begin(), changes.rects.begin(), changes.rects.end());
    };
    if (!picture || (frame.keep == Keep::ifCursorChanged && !cursorChanged)) return giveBack();
    forceFrame = false;
    cursorShownLastFrame = false;
    // The cursor is painted into the picture: where it was and where it is changed too.
    if (!lastCursorRect.isEmpty()) changes.rects.push_back(lastCursorRect);
    lastCursorRect = QRect();
    if (configuration.showsCursor && cursor.hasImage()) {
        const QRect placed = cursor.placement(pointer);
        if (placed.intersects(picture->rect())) {
            cursor.paint(picture->bits(), int(picture->bytesPerLine()), picture->size(), placed.topLeft());
            cursorShownLastFrame = true;
            lastCursorRect = placed & picture->rect();
            changes.rects.push_back(lastCursorRect);
        }
    }
    QImage image = scaler.fit(*picture, QSize(configuration.width, configuration.height));
    if (image.isNull()) {
        lastCursorRect = QRect();
        changedSinceFrame.known = false;
        return;
    }
    // Scaled, a change spreads over its neighbours: the frame is new as a whole.
    if (image.size() != picture->size()) changes.known = false;
    changes.sequence = ++framesDelivered;
    if (!changes.known) changes.rects.clear();
    output->didOutputFrame(VideoFrame { image, MediaTime::fromNanoseconds(frame.grabbedAt), std::move(changes) });
}
