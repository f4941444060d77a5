#include "platform/x11/X11Compositor.h"

#include "platform/x11/XcbConnection.h"

#include <xcb/xcb.h>

namespace X11Compositor {

bool isRunning()
{
    QString error;
    const auto connection = XcbConnection::open(&error);
    if (!connection) return false;
    xcb_connection_t* c = connection->get();
    // The screen in use is the root's; DISPLAY=:N.S names it, and almost always S is 0.
    int screen = 0;
    for (xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c)); it.rem; xcb_screen_next(&it), ++screen)
        if (it.data->root == connection->root()) break;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(screen);
    XcbReply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, uint16_t(name.size()), name.constData()), nullptr));
    if (!atom || atom->atom == XCB_NONE) return false;
    XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, atom->atom), nullptr));
    return owner && owner->owner != XCB_NONE;
}

} // namespace X11Compositor
