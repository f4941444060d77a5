#pragma once

#include "capture/CaptureWindow.h"

#include <QStringList>

#include <xcb/xcb.h>

#include <optional>
#include <vector>

class ApplicationNames;
class XcbConnection;

// The windows of the X display, unfiltered, in the order the platform gives them.
//
// With a window manager that keeps the EWMH client list, that list (in the order the windows were
// mapped). A bare X server has none: then the mapped top-level children of the root that carry
// WM_CLASS, bottom to top.
//
// What is "layer 0" here: a window that is not override-redirect and whose _NET_WM_WINDOW_TYPE is
// NORMAL, DIALOG or UTILITY (or absent, which means NORMAL). Everything else gets layer 1. A window
// is on screen when it is viewable and not hidden (_NET_WM_STATE_HIDDEN, i.e. minimised).
class X11WindowList {
public:
    // Blocking: a few pipelined round trips.
    static std::vector<CaptureWindow> list(const XcbConnection& connection, ApplicationNames& names);

    // A window's frame in root coordinates, or none if it is gone. Blocking.
    static std::optional<QRectF> frameOf(const XcbConnection& connection, xcb_window_t window);

    // WM_CLASS classes of desktop shells, panels and docks: their windows are furniture, not
    // something to record by itself.
    static QStringList shellClasses();

private:
    static std::vector<xcb_window_t> clientList(const XcbConnection& connection);
};
