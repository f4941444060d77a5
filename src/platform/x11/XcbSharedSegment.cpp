#include "platform/x11/XcbSharedSegment.h"

#include "platform/x11/XcbConnection.h"

#include <sys/ipc.h>
#include <sys/shm.h>

std::optional<XcbSharedSegment> XcbSharedSegment::attach(xcb_connection_t* connection, size_t bytes)
{
    const int id = shmget(IPC_PRIVATE, bytes, IPC_CREAT | 0600);
    if (id < 0) return std::nullopt;
    void* address = shmat(id, nullptr, 0);
    if (address == reinterpret_cast<void*>(-1)) {
        shmctl(id, IPC_RMID, nullptr);
        return std::nullopt;
    }
    const xcb_shm_seg_t seg = xcb_generate_id(connection);
    const XcbReply<xcb_generic_error_t> error(
        xcb_request_check(connection, xcb_shm_attach_checked(connection, seg, id, 0)));
    // Marked for removal at once: it goes when the last of us and the server detaches.
    shmctl(id, IPC_RMID, nullptr);
    if (error) {
        unmap(static_cast<uchar*>(address));
        return std::nullopt;
    }
    return XcbSharedSegment { seg, static_cast<uchar*>(address) };
}

void XcbSharedSegment::unmap(uchar* address)
{
    if (address) shmdt(address);
}
