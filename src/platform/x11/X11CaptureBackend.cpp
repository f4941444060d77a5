#include "platform/x11/X11CaptureBackend.h"

#include "platform/x11/ApplicationNames.h"
#include "platform/x11/X11CaptureStream.h"
#include "platform/x11/X11WindowList.h"
#include "platform/x11/XcbConnection.h"
#include "platform/x11/XcbImageGrabber.h"

#include <QPainter>

#include <xcb/composite.h>
#include <xcb/randr.h>

#include <algorithm>

namespace {

// How many windows single grabs keep redirected: enough for a watched window and a thumbnail or
// two, few enough that nothing lives off screen for long without need.
constexpr size_t redirectedWindowLimit = 4;

// A grab as an opaque image of its own (the server leaves the fourth byte as it likes).
QImage opaqueCopy(const QImage& pixels)
{
    QImage image(pixels.size(), QImage::Format_RGB32);
    for (int y = 0; y < pixels.height(); ++y) {
        const auto* from = reinterpret_cast<const uint32_t*>(pixels.constScanLine(y));
        auto* to = reinterpret_cast<uint32_t*>(image.scanLine(y));
        for (int x = 0; x < pixels.width(); ++x)
            to[x] = from[x] | 0xff000000u;
    }
    return image;
}

} // namespace

X11CaptureBackend::X11CaptureBackend()
    : names(std::make_unique<ApplicationNames>())
{
}

X11CaptureBackend::~X11CaptureBackend()
{
    std::lock_guard lock(mutex);
    peekGrabber.reset();
    if (connection && !connection->isBroken()) {
        for (uint32_t window : redirectedWindows)
            xcb_composite_unredirect_window(connection->get(), window, XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        xcb_flush(connection->get());
    }
}

QString X11CaptureBackend::probe()
{
    QString error;
    std::unique_ptr<XcbConnection> c = XcbConnection::open(&error);
    if (!c) return error;
    const XcbConnection::Extensions& ext = c->extensions();
    if (!ext.damage) return QStringLiteral("the X server lacks the DAMAGE extension");
    if (!ext.xfixes) return QStringLiteral("the X server lacks the XFIXES extension");
    return {};
}

XcbConnection* X11CaptureBackend::connectionLocked(QString* error)
{
    if (connection && !connection->isBroken()) return connection.get();
    redirectedWindows.clear(); // a new connection owns no redirections
    peekGrabber.reset();
    connection = XcbConnection::open(error);
    return connection.get();
}

void X11CaptureBackend::drainLocked()
{
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection->get()))
        XcbReply<xcb_generic_event_t> discard(event);
}

WindowListFilter::SystemRules X11CaptureBackend::systemWindowRules() const
{
    return { X11WindowList::shellClasses(), {} };
}

std::vector<CaptureDisplay> X11CaptureBackend::displaysLocked()
{
    xcb_connection_t* c = connection->get();
    std::vector<CaptureDisplay> displays;
    if (connection->extensions().randrMonitors) {
        XcbReply<xcb_randr_get_monitors_reply_t> monitors(
            xcb_randr_get_monitors_reply(c, xcb_randr_get_monitors(c, connection->root(), 1), nullptr));
        if (monitors) {
            std::vector<std::pair<CaptureDisplay, xcb_get_atom_name_cookie_t>> pending;
            for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem;
                 xcb_randr_monitor_info_next(&it)) {
                const xcb_randr_monitor_info_t* m = it.data;
                CaptureDisplay display;
                const int outputs = xcb_randr_monitor_info_outputs_length(m);
                display.displayID = outputs > 0 ? xcb_randr_monitor_info_outputs(m)[0] : m->name;
                display.frame = QRect(m->x, m->y, m->width, m->height);
                display.width = m->width;
                display.height = m->height;
                pending.emplace_back(display, xcb_get_atom_name(c, m->name));
            }
            for (auto& [display, cookie] : pending) {
                XcbReply<xcb_get_atom_name_reply_t> name(xcb_get_atom_name_reply(c, cookie, nullptr));
                if (name)
                    display.name = QString::fromUtf8(
                        xcb_get_atom_name_name(name.get()), xcb_get_atom_name_name_length(name.get()));
                displays.push_back(display);
            }
        }
    }
    // An X server without RandR 1.5 (or without active monitors) is one display, the whole screen.
    if (displays.empty()) {
        CaptureDisplay display;
        display.displayID = connection->root();
        display.frame = connection->screenRect();
        display.width = display.frame.width();
        display.height = display.frame.height();
        display.name = QStringLiteral("screen");
        displays.push_back(display);
    }
    return displays;
}

CaptureBackend::ContentResult X11CaptureBackend::shareableContent()
{
    std::lock_guard lock(mutex);
    QString error;
    if (!connectionLocked(&error)) return { std::nullopt, error };
    ShareableContent content;
    content.displays = displaysLocked();
    content.windows = X11WindowList::list(*connection, *names);
    drainLocked();
    if (connection->isBroken()) return { std::nullopt, QStringLiteral("the connection to the X server was lost") };
    return { content, {} };
}

CaptureBackend::StreamStart X11CaptureBackend::startCapture(
    const ContentFilter& filter, const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output)
{
    return X11CaptureStream::start(filter, configuration, std::move(output));
}

std::optional<QRectF> X11CaptureBackend::windowFrame(uint32_t windowID)
{
    std::lock_guard lock(mutex);
    QString error;
    if (!connectionLocked(&error)) return std::nullopt;
    std::optional<QRectF> frame = X11WindowList::frameOf(*connection, windowID);
    drainLocked();
    return frame;
}

std::optional<QImage> X11CaptureBackend::grabRect(const QRectF& globalRect)
{
    const QRect wanted = globalRect.toAlignedRect();
    if (wanted.isEmpty()) return std::nullopt;
    std::lock_guard lock(mutex);
    QString error;
    if (!connectionLocked(&error)) return std::nullopt;
    const QRect onScreen = wanted & connection->screenRect();
    QImage image(wanted.size(), QImage::Format_RGB32);
    image.fill(Qt::black);
    if (!onScreen.isEmpty()) {
        // Single grabs are small and rare: the socket path is enough.
        XcbImageGrabber grabber(connection->get(), false);
        std::optional<QImage> pixels = grabber.grab(connection->root(), onScreen);
        drainLocked();
        if (!pixels) return std::nullopt;
        QPainter painter(&image);
        painter.drawImage(onScreen.topLeft() - wanted.topLeft(), opaqueCopy(*pixels));
    }
    return image;
}

bool X11CaptureBackend::redirectLocked(uint32_t window, QSize size)
{
    xcb_connection_t* c = connection->get();
    auto known = std::find(redirectedWindows.begin(), redirectedWindows.end(), window);
    if (known != redirectedWindows.end()) {
        redirectedWindows.erase(known);
        redirectedWindows.push_back(window);
        return true;
    }
    XcbReply<xcb_generic_error_t> failed(
        xcb_request_check(c, xcb_composite_redirect_window_checked(c, window, XCB_COMPOSITE_REDIRECT_AUTOMATIC)));
    if (failed) return false;
    // What was covered until now holds what covered it: let the application paint itself again.
    connection->requestRepaint(window, uint16_t(size.width()), uint16_t(size.height()));
    redirectedWindows.push_back(window);
    while (redirectedWindows.size() > redirectedWindowLimit) {
        xcb_composite_unredirect_window(c, redirectedWindows.front(), XCB_COMPOSITE_REDIRECT_AUTOMATIC);
        redirectedWindows.pop_front();
    }
    return true;
}

std::optional<QRect> X11CaptureBackend::redirectedFrameLocked(uint32_t window)
{
    const std::optional<QRectF> frame = X11WindowList::frameOf(*connection, window);
    if (!frame || !redirectLocked(window, frame->toAlignedRect().size())) return std::nullopt;
    return frame->toAlignedRect();
}

std::optional<QImage> X11CaptureBackend::windowPixelsLocked(
    uint32_t window, const QRect& rect, XcbImageGrabber& grabber)
{
    xcb_connection_t* c = connection->get();
    const xcb_pixmap_t pixmap = xcb_generate_id(c);
    XcbReply<xcb_generic_error_t> failed(
        xcb_request_check(c, xcb_composite_name_window_pixmap_checked(c, window, pixmap)));
    if (failed) return std::nullopt;
    std::optional<QImage> pixels = grabber.grab(pixmap, rect);
    xcb_free_pixmap(c, pixmap);
    return pixels;
}

XcbImageGrabber& X11CaptureBackend::peekGrabberLocked()
{
    // A peek is let go before the next one: two segments are plenty.
    if (!peekGrabber)
        peekGrabber = std::make_unique<XcbImageGrabber>(connection->get(), connection->extensions().shm, 2);
    return *peekGrabber;
}

std::optional<QImage> X11CaptureBackend::grabWindowRect(uint32_t windowID, const std::optional<QRectF>& globalRect)
{
    std::lock_guard lock(mutex);
    QString error;
    if (!connectionLocked(&error) || !connection->extensions().composite) return std::nullopt;
    const std::optional<QRect> windowRect = redirectedFrameLocked(windowID);
    if (!windowRect) {
        drainLocked();
        return std::nullopt;
    }
    const QRect wanted = globalRect ? globalRect->toAlignedRect() : *windowRect;
    if (wanted.isEmpty()) return std::nullopt;
    QImage image(wanted.size(), QImage::Format_RGB32);
    image.fill(Qt::black);
    const QRect inside = wanted & *windowRect;
    if (!inside.isEmpty()) {
        XcbImageGrabber grabber(connection->get(), false);
        std::optional<QImage> pixels = windowPixelsLocked(windowID, inside.translated(-windowRect->topLeft()), grabber);
        drainLocked();
        if (!pixels) return std::nullopt;
        QPainter painter(&image);
        painter.drawImage(inside.topLeft() - wanted.topLeft(), opaqueCopy(*pixels));
    }
    return image;
}

std::optional<QImage> X11CaptureBackend::peekRect(const QRectF& globalRect)
{
    const QRect wanted = globalRect.toAlignedRect();
    if (wanted.isEmpty()) return std::nullopt;
    {
        std::lock_guard lock(mutex);
        QString error;
        if (!connectionLocked(&error)) return std::nullopt;
        if (connection->screenRect().contains(wanted)) {
            std::optional<QImage> pixels = peekGrabberLocked().grab(connection->root(), wanted);
            drainLocked();
            return pixels;
        }
    }
    // Partly off the screen: the black margin needs a picture of its own.
    return grabRect(globalRect);
}

std::optional<QImage> X11CaptureBackend::peekWindowRect(uint32_t windowID, const QRectF& globalRect)
{
    const QRect wanted = globalRect.toAlignedRect();
    if (wanted.isEmpty()) return std::nullopt;
    {
        std::lock_guard lock(mutex);
        QString error;
        if (!connectionLocked(&error) || !connection->extensions().composite) return std::nullopt;
        const std::optional<QRect> windowRect = redirectedFrameLocked(windowID);
        if (!windowRect) {
            drainLocked();
            return std::nullopt;
        }
        if (windowRect->contains(wanted)) {
            std::optional<QImage> pixels
                = windowPixelsLocked(windowID, wanted.translated(-windowRect->topLeft()), peekGrabberLocked());
            drainLocked();
            return pixels;
        }
    }
    return grabWindowRect(windowID, globalRect);
}
