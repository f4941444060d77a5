#pragma once

// Whether a compositing manager runs on the X display (someone owns _NET_WM_CM_S<screen>): only
// then are the alpha values of a window's pixels blended with what lies below. Blocking, one
// round trip on a connection of its own; false when the display can't be reached.
namespace X11Compositor {
bool isRunning();
}
