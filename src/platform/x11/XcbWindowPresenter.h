#pragma once

#include "platform/x11/XcbConnection.h"
#include "platform/x11/XcbSharedSegment.h"

#include <QImage>
#include <QRegion>

#include <xcb/shm.h>

#include <memory>

// Puts pictures on a window of ours through a shared-memory segment: the pixels never go through
// the socket, and nothing waits for the server. The caller paints straight into the segment
// (`canvas`), so a picture is never copied on its way; it doesn't paint while the server may still be
// reading the last one: it asks `isReady` and skips a picture if not.
//
// It has a connection of its own, so that it can read the server's word that a put is done without
// touching Qt's events. Qt's backing store, by contrast, waits for a round trip to the server before
// it lets a region it has just shown be painted again: sixty times a second, that is most of an
// animation's cost.
//
// One thread.
class XcbWindowPresenter {
public:
    // For a window that exists, shown or not. None when there is no display or the server can't share
    // memory with us (a remote display): the caller paints through Qt then.
    static std::unique_ptr<XcbWindowPresenter> create(xcb_window_t window, QSize size);
    ~XcbWindowPresenter();
    XcbWindowPresenter(const XcbWindowPresenter&) = delete;
    XcbWindowPresenter& operator=(const XcbWindowPresenter&) = delete;

    // The segment as a picture the window's size (ARGB32 premultiplied), to paint in. Keep one copy
    // of it only: a second would make painting copy the pixels away from the segment.
    QImage canvas() const;
    // Whether the server is done with the last put.
    bool isReady();
    // Shows `region` of the canvas on the window.
    void put(const QRegion& region);

private:
    XcbWindowPresenter() = default;

    std::unique_ptr<XcbConnection> connection;
    xcb_window_t window = 0;
    xcb_gcontext_t gc = 0;
    uint8_t depth = 0;
    QSize size;
    XcbSharedSegment segment;
    uint8_t completion = 0;
    bool pending = false;
};
