#pragma once

#include "platform/x11/XcbConnection.h"

#include <QImage>
#include <QRect>

#include <xcb/shm.h>
#include <xcb/xcb.h>

#include <memory>
#include <optional>

// Reads rectangles of a drawable (the root window, or a window's composite pixmap) as 32-bit
// pixels, QImage::Format_RGB32 (the fourth byte is whatever the server leaves there).
//
// With MIT-SHM the server writes straight into shared segments of ours, and the image handed out is
// a view on its segment: no copy is made in this process. The segment goes back to a small pool
// when the last copy of the image is gone, on whatever thread that happens, and is used again.
// Without MIT-SHM (a server in another IPC namespace, a remote display) the pixels come through the
// socket instead. When every pooled segment is still held, a grabber made to read through the socket
// does so; one made to skip refuses the grab, which bounds the pictures it has out at once.
//
// A grab can also be split in two: ask() sends the request and returns at once, take() reads the
// answer later, so the server copies the pixels while the caller sleeps.
//
// The grabber is used by one thread at a time; images may travel anywhere.
class XcbImageGrabber {
    struct Segment;

public:
    // A grab that was asked for and not yet taken. Each one must go to take() or abandon().
    struct Request {
        unsigned int sequence = 0;
        QRect rect;
        Segment* segment = nullptr; // null: the pixels come through the socket
    };

    enum class WhenPoolIsFull { readThroughSocket, skip };

    // The connection must outlive the grabber. `useShm` false forces the socket path.
    XcbImageGrabber(xcb_connection_t* connection, bool useShm, int segmentLimit = 12,
        WhenPoolIsFull whenFull = WhenPoolIsFull::readThroughSocket);
    ~XcbImageGrabber();
    XcbImageGrabber(const XcbImageGrabber&) = delete;
    XcbImageGrabber& operator=(const XcbImageGrabber&) = delete;

    // Blocking. None if the server refused (a drawable that is gone, a rectangle outside it).
    // The image is the caller's alone: drawing into it changes no other grab.
    std::optional<QImage> grab(xcb_drawable_t drawable, const QRect& rect);
    // Sends the request; none for an empty rectangle, or when the pool is full and the grabber skips.
    std::optional<Request> ask(xcb_drawable_t drawable, const QRect& rect);
    // Blocks only if the answer has not come yet.
    std::optional<QImage> take(const Request& request);
    // For a request whose answer is no longer wanted. Blocks until the answer is in.
    void abandon(const Request& request);
    bool usesShm() const { return shmWanted; }

private:
    struct Pool;

    Segment* takeSegment(size_t bytes);
    Segment* makeSegment(size_t bytes);
    static void returnSegment(void* segment);

    xcb_connection_t* connection;
    bool shmWanted;
    int segmentLimit;
    WhenPoolIsFull whenFull;
    std::shared_ptr<Pool> pool;
};
