#include "platform/x11/X11Compositor.h"

#include "platform/x11/XcbConnection.h"

#include <QSocketNotifier>

#include <xcb/xcb.h>
#include <xcb/xfixes.h>

namespace {

// The atom _NET_WM_CM_S<screen> for the screen `connection` is on; none if it can't be had.
xcb_atom_t compositorSelection(const XcbConnection& connection)
{
    xcb_connection_t* c = connection.get();
    // The screen in use is the root's; DISPLAY=:N.S names it, and almost always S is 0.
    int screen = 0;
    for (xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(c)); it.rem; xcb_screen_next(&it), ++screen)
        if (it.data->root == connection.root()) break;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(screen);
    XcbReply<xcb_intern_atom_reply_t> atom(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, uint16_t(name.size()), name.constData()), nullptr));
    return atom ? atom->atom : xcb_atom_t(XCB_NONE);
}

bool selectionOwned(const XcbConnection& connection, xcb_atom_t selection)
{
    if (selection == XCB_NONE) return false;
    xcb_connection_t* c = connection.get();
    XcbReply<xcb_get_selection_owner_reply_t> owner(
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr));
    return owner && owner->owner != XCB_NONE;
}

} // namespace

namespace X11Compositor {

bool isRunning()
{
    QString error;
    const auto connection = XcbConnection::open(&error);
    return connection && selectionOwned(*connection, compositorSelection(*connection));
}

} // namespace X11Compositor

X11CompositorWatch::X11CompositorWatch(QObject* parent)
    : QObject(parent)
{
    QString error;
    connection = XcbConnection::open(&error);
    if (!connection) return;
    selection = compositorSelection(*connection);
    if (selection == XCB_NONE) return;
    xcb_connection_t* c = connection->get();
    if (connection->extensions().xfixes) {
        // Asked before the owner is read, so that no change falls between the two.
        xcb_xfixes_select_selection_input(c, connection->root(), selection,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER
                | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY
                | XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
        notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(c), QSocketNotifier::Read);
        connect(notifier.get(), &QSocketNotifier::activated, this, &X11CompositorWatch::readEvents);
    }
    running = ownerExists();
    readEvents();
}

X11CompositorWatch::~X11CompositorWatch() = default;

bool X11CompositorWatch::ownerExists() const
{
    return selectionOwned(*connection, selection);
}

void X11CompositorWatch::readEvents()
{
    xcb_connection_t* c = connection->get();
    bool now = running;
    // Asking who owns the selection may bring more events along, which would not wake the notifier
    // again: read until a look at the owner brought none.
    for (bool news = true; news;) {
        news = false;
        while (XcbReply<xcb_generic_event_t> event { xcb_poll_for_event(c) })
            if ((event->response_type & 0x7f)
                == connection->extensions().xfixesFirstEvent + XCB_XFIXES_SELECTION_NOTIFY)
                news = true;
        if (connection->isBroken()) {
            if (notifier) notifier->setEnabled(false);
            return;
        }
        if (news) now = ownerExists();
    }
    if (now == running) return;
    running = now;
    emit changed(running);
}
