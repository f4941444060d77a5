#pragma once

#include <QtGlobal>

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstddef>
#include <optional>

// Shared memory that the X server maps as well as we do (MIT-SHM), so that pictures pass between
// us without going through the socket.
struct XcbSharedSegment {
    xcb_shm_seg_t id = 0;
    uchar* address = nullptr;

    // `bytes` of fresh shared memory, attached by the server of `connection`; none if either side
    // can't (no memory, a server in another IPC namespace or on another machine). It goes away
    // once both sides have let go, even if this process dies.
    static std::optional<XcbSharedSegment> attach(xcb_connection_t* connection, size_t bytes);
    // Our side's letting go; the server's is `xcb_shm_detach`.
    static void unmap(uchar* address);
};
