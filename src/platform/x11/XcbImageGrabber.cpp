#include "platform/x11/XcbImageGrabber.h"

#include <cstdlib>
#include <sys/ipc.h>
#include <sys/shm.h>

XcbImageGrabber::XcbImageGrabber(xcb_connection_t* connection, bool useShm)
    : connection(connection)
    , shmWanted(useShm)
{
}

XcbImageGrabber::~XcbImageGrabber()
{
    releaseSegment();
}

void XcbImageGrabber::releaseSegment()
{
    if (segment) xcb_shm_detach(connection, segment);
    if (mapped) shmdt(mapped);
    segment = 0;
    mapped = nullptr;
    mappedBytes = 0;
}

bool XcbImageGrabber::ensureSegment(size_t bytes)
{
    if (!shmWanted) return false;
    if (segment && mappedBytes >= bytes) return true;
    releaseSegment();
    const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (id < 0) {
        shmWanted = false;
        return false;
    }
    void* address = shmat(id, nullptr, 0);
    // Marked for removal at once: the segment goes when the last of us and the server detaches,
    // even if this process dies.
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        shmWanted = false;
        return false;
    }
    const xcb_shm_seg_t seg = xcb_generate_id(connection);
    xcb_generic_error_t* error = xcb_request_check(connection, xcb_shm_attach_checked(connection, seg, id, 0));
    shmctl(id, IPC_RMID, nullptr);
    if (error) {
        // A server in another IPC namespace (a container, a remote display) cannot map it.
        std::free(error);
        shmdt(address);
        shmWanted = false;
        return false;
    }
    segment = seg;
    mapped = static_cast<uchar*>(address);
    mappedBytes = bytes;
    return true;
}

std::optional<XcbImageGrabber::Pixels> XcbImageGrabber::grab(xcb_drawable_t drawable, const QRect& rect)
{
    if (rect.isEmpty()) return std::nullopt;
    const size_t bytes = size_t(rect.width()) * size_t(rect.height()) * 4;
    if (ensureSegment(bytes)) {
        xcb_generic_error_t* error = nullptr;
        XcbReply<xcb_shm_get_image_reply_t> reply(xcb_shm_get_image_reply(connection,
            xcb_shm_get_image(connection, drawable, int16_t(rect.x()), int16_t(rect.y()), uint16_t(rect.width()),
                uint16_t(rect.height()), ~0u, XCB_IMAGE_FORMAT_Z_PIXMAP, segment, 0),
            &error));
        std::free(error);
        if (!reply) return std::nullopt;
        return Pixels { mapped, rect.width() * 4, rect.size(), reply->depth };
    }
    xcb_generic_error_t* error = nullptr;
    XcbReply<xcb_get_image_reply_t> reply(xcb_get_image_reply(connection,
        xcb_get_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, int16_t(rect.x()), int16_t(rect.y()),
            uint16_t(rect.width()), uint16_t(rect.height()), ~0u),
        &error));
    std::free(error);
    if (!reply || size_t(xcb_get_image_data_length(reply.get())) < bytes) return std::nullopt;
    lastReply = std::move(reply);
    return Pixels { xcb_get_image_data(lastReply.get()), rect.width() * 4, rect.size(), lastReply->depth };
}
