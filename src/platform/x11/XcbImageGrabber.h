#pragma once

#include "platform/x11/XcbConnection.h"

#include <QRect>
#include <QString>

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <optional>

// Reads rectangles of a drawable (the root window, or a window's composite pixmap) as 32-bit
// pixels. Through a MIT-SHM segment when the server can map ours (no copy through the socket),
// otherwise through plain GetImage. Used by one thread at a time.
class XcbImageGrabber {
public:
    // The pixels of one grab; valid until the next grab or the grabber's end.
    struct Pixels {
        uchar* data = nullptr;
        int stride = 0;
        QSize size;
        uint8_t depth = 0;
    };

    // The connection must outlive the grabber. `useShm` false forces the socket path.
    XcbImageGrabber(xcb_connection_t* connection, bool useShm);
    ~XcbImageGrabber();
    XcbImageGrabber(const XcbImageGrabber&) = delete;
    XcbImageGrabber& operator=(const XcbImageGrabber&) = delete;

    // Blocking. None if the server refused (a drawable that is gone, a rectangle outside it).
    std::optional<Pixels> grab(xcb_drawable_t drawable, const QRect& rect);
    bool usesShm() const { return segment != 0; }

private:
    bool ensureSegment(size_t bytes);
    void releaseSegment();

    xcb_connection_t* connection;
    bool shmWanted;
    xcb_shm_seg_t segment = 0;
    uchar* mapped = nullptr;
    size_t mappedBytes = 0;
    // The socket path keeps its last reply alive here.
    XcbReply<xcb_get_image_reply_t> lastReply;
};
