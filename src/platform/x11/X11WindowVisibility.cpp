#include "platform/x11/X11WindowVisibility.h"

#include "platform/x11/XcbConnection.h"

#include <QSocketNotifier>

std::unique_ptr<X11WindowVisibility> X11WindowVisibility::watch(uint32_t window, Report report)
{
    QString error;
    std::unique_ptr<XcbConnection> connection = XcbConnection::open(&error);
    if (!connection) return nullptr;
    const uint32_t mask = XCB_EVENT_MASK_VISIBILITY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection->get(), window, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection->get());
    return std::unique_ptr<X11WindowVisibility>(new X11WindowVisibility(std::move(connection), std::move(report)));
}

X11WindowVisibility::X11WindowVisibility(std::unique_ptr<XcbConnection> conn, Report r)
    : connection(std::move(conn))
    , report(std::move(r))
{
    notifier = new QSocketNotifier(xcb_get_file_descriptor(connection->get()), QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &X11WindowVisibility::readEvents);
}

X11WindowVisibility::~X11WindowVisibility() = default;

void X11WindowVisibility::readEvents()
{
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection->get())) {
        switch (event->response_type & 0x7f) {
        case XCB_VISIBILITY_NOTIFY:
            obscured = reinterpret_cast<xcb_visibility_notify_event_t*>(event)->state == XCB_VISIBILITY_FULLY_OBSCURED;
            break;
        case XCB_UNMAP_NOTIFY:
            mapped = false;
            break;
        case XCB_MAP_NOTIFY:
            mapped = true;
            break;
        default:
            break;
        }
        std::free(event);
    }
    const bool visible = mapped && !obscured;
    if (visible == lastReported) return;
    lastReported = visible;
    if (report) report(visible);
}
