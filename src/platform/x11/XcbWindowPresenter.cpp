#include "platform/x11/XcbWindowPresenter.h"

#include <xcb/shm.h>

#include <cstdlib>

std::unique_ptr<XcbWindowPresenter> XcbWindowPresenter::create(xcb_window_t window, QSize size)
{
    if (size.isEmpty()) return nullptr;
    QString error;
    std::unique_ptr<XcbWindowPresenter> presenter(new XcbWindowPresenter);
    presenter->connection = XcbConnection::open(&error);
    if (!presenter->connection || !presenter->connection->extensions().shm) return nullptr;
    xcb_connection_t* c = presenter->connection->get();
    const XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    if (!geometry) return nullptr;
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(c, &xcb_shm_id);
    if (!shm || !shm->present) return nullptr;

    const auto shared = XcbSharedSegment::attach(c, size_t(size.width()) * size_t(size.height()) * 4);
    if (!shared) return nullptr;
    presenter->segment = *shared;
    presenter->window = window;
    presenter->depth = geometry->depth;
    presenter->size = size;
    presenter->completion = uint8_t(shm->first_event + XCB_SHM_COMPLETION);
    presenter->gc = xcb_generate_id(c);
    const uint32_t noExposures = 0;
    xcb_create_gc(c, presenter->gc, window, XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    return presenter;
}

XcbWindowPresenter::~XcbWindowPresenter()
{
    xcb_connection_t* c = connection->get();
    xcb_free_gc(c, gc);
    xcb_shm_detach(c, segment.id);
    xcb_flush(c);
    XcbSharedSegment::unmap(segment.address);
}

bool XcbWindowPresenter::isReady()
{
    if (!pending) return true;
    // One read of what the server has sent, then only what that read brought.
    xcb_connection_t* c = connection->get();
    for (xcb_generic_event_t* event = xcb_poll_for_event(c); event; event = xcb_poll_for_queued_event(c)) {
        // An error (the window gone) ends the put as surely as its completion.
        const uint8_t type = event->response_type & 0x7f;
        if (type == completion || type == 0) pending = false;
        std::free(event);
    }
    // A connection that broke will never answer; its puts go nowhere anyway.
    return !pending || connection->isBroken();
}

QImage XcbWindowPresenter::canvas() const
{
    return QImage(
        segment.address, size.width(), size.height(), qsizetype(size.width()) * 4, QImage::Format_ARGB32_Premultiplied);
}

void XcbWindowPresenter::put(const QRegion& region)
{
    const QRegion shown = region.intersected(QRect(QPoint(), size));
    if (shown.isEmpty()) return;
    xcb_connection_t* c = connection->get();
    const QRect last = *(shown.end() - 1);
    for (const QRect& rect : shown)
        xcb_shm_put_image(c, window, gc, uint16_t(size.width()), uint16_t(size.height()), int16_t(rect.x()),
            int16_t(rect.y()), uint16_t(rect.width()), uint16_t(rect.height()), int16_t(rect.x()), int16_t(rect.y()),
            depth, XCB_IMAGE_FORMAT_Z_PIXMAP, rect == last ? 1 : 0, segment.id, 0);
    xcb_flush(c);
    pending = true;
}
