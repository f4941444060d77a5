#pragma once

#include <QRect>

#include <xcb/xcb.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

// Where this program's windows can be seen on the root window: the rectangles of those that are
// viewable and that no other viewable window overlaps from above. Damage inside such a rectangle
// is our own repaint; damage where another window lies over ours may be that window's, so an
// overlapped window counts for nothing here.
//
// One capture thread, on that thread's connection.
class X11OwnWindowArea {
public:
    X11OwnWindowArea(xcb_connection_t* connection, xcb_window_t root);

    // Blocking: a few round trips, the requests of each sent together.
    std::vector<QRect> uncoveredRects(const std::vector<uint32_t>& windows);

private:
    // The child of the root that holds `window` (the window itself, or its window manager's
    // frame); XCB_NONE when it is gone.
    xcb_window_t topLevelOf(xcb_window_t window);

    xcb_connection_t* connection;
    xcb_window_t root;
    // A window keeps its frame until it is reparented again; looked up again when the frame is no
    // longer a child of the root.
    std::unordered_map<xcb_window_t, xcb_window_t> frames;
};
