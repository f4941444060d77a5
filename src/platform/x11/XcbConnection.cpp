#include "platform/x11/XcbConnection.h"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>
#include <xcb/xinput.h>

#include <cstring>

namespace {

constexpr const char* atomNames[XcbConnection::AtomCount] = {
    "_NET_CLIENT_LIST",
    "_NET_SUPPORTING_WM_CHECK",
    "_NET_WM_NAME",
    "UTF8_STRING",
    "_NET_WM_WINDOW_TYPE",
    "_NET_WM_WINDOW_TYPE_NORMAL",
    "_NET_WM_WINDOW_TYPE_DIALOG",
    "_NET_WM_WINDOW_TYPE_UTILITY",
    "_NET_WM_STATE",
    "_NET_WM_STATE_HIDDEN",
    "_NET_WM_PID",
};

QString connectionErrorText(int code)
{
    switch (code) {
    case XCB_CONN_ERROR:
        return QStringLiteral("the connection to the X server failed");
    case XCB_CONN_CLOSED_EXT_NOTSUPPORTED:
        return QStringLiteral("the X server lacks a required extension");
    case XCB_CONN_CLOSED_MEM_INSUFFICIENT:
        return QStringLiteral("out of memory");
    case XCB_CONN_CLOSED_REQ_LEN_EXCEED:
        return QStringLiteral("a request was too long for the X server");
    case XCB_CONN_CLOSED_PARSE_ERR:
        return QStringLiteral("DISPLAY is not a valid display name");
    case XCB_CONN_CLOSED_INVALID_SCREEN:
        return QStringLiteral("the X server has no such screen");
    default:
        return QStringLiteral("the X server closed the connection");
    }
}

} // namespace

std::unique_ptr<XcbConnection> XcbConnection::open(QString* error)
{
    const QByteArray displayName = qgetenv("DISPLAY");
    if (displayName.isEmpty()) {
        if (error) *error = QStringLiteral("no X display is set (DISPLAY is empty)");
        return nullptr;
    }
    int screenNumber = 0;
    xcb_connection_t* raw = xcb_connect(displayName.constData(), &screenNumber);
    std::unique_ptr<XcbConnection> c(new XcbConnection);
    c->connection = raw;
    if (const int code = xcb_connection_has_error(raw)) {
        if (error)
            *error = QStringLiteral("cannot open display %1: %2")
                         .arg(QString::fromLocal8Bit(displayName), connectionErrorText(code));
        return nullptr;
    }
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(raw));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    if (!it.rem) {
        if (error) *error = QStringLiteral("the X server has no screen %1").arg(screenNumber);
        return nullptr;
    }
    c->rootScreen = it.data;

    // Every lookup is sent before the first answer is awaited: one round trip in all.
    xcb_intern_atom_cookie_t atomCookies[AtomCount];
    for (int i = 0; i < AtomCount; ++i)
        atomCookies[i] = xcb_intern_atom(raw, 0, uint16_t(std::strlen(atomNames[i])), atomNames[i]);
    xcb_prefetch_extension_data(raw, &xcb_shm_id);
    xcb_prefetch_extension_data(raw, &xcb_damage_id);
    xcb_prefetch_extension_data(raw, &xcb_xfixes_id);
    xcb_prefetch_extension_data(raw, &xcb_composite_id);
    xcb_prefetch_extension_data(raw, &xcb_randr_id);
    xcb_prefetch_extension_data(raw, &xcb_input_id);

    Extensions& ext = c->available;
    const xcb_query_extension_reply_t* shm = xcb_get_extension_data(raw, &xcb_shm_id);
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(raw, &xcb_damage_id);
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(raw, &xcb_xfixes_id);
    const xcb_query_extension_reply_t* composite = xcb_get_extension_data(raw, &xcb_composite_id);
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(raw, &xcb_randr_id);
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(raw, &xcb_input_id);

    // DAMAGE and XFIXES must be told which version the client speaks before they answer anything.
    xcb_shm_query_version_cookie_t shmCookie {};
    xcb_damage_query_version_cookie_t damageCookie {};
    xcb_xfixes_query_version_cookie_t xfixesCookie {};
    xcb_composite_query_version_cookie_t compositeCookie {};
    xcb_randr_query_version_cookie_t randrCookie {};
    xcb_input_xi_query_version_cookie_t xinputCookie {};
    if (shm && shm->present) shmCookie = xcb_shm_query_version(raw);
    if (xfixes && xfixes->present) xfixesCookie = xcb_xfixes_query_version(raw, 5, 0);
    if (damage && damage->present) damageCookie = xcb_damage_query_version(raw, 1, 1);
    if (composite && composite->present) compositeCookie = xcb_composite_query_version(raw, 0, 4);
    if (randr && randr->present) randrCookie = xcb_randr_query_version(raw, 1, 5);
    if (xinput && xinput->present) xinputCookie = xcb_input_xi_query_version(raw, 2, 0);

    for (int i = 0; i < AtomCount; ++i) {
        XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(raw, atomCookies[i], nullptr));
        c->atoms[i] = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    }
    if (shm && shm->present) {
        XcbReply<xcb_shm_query_version_reply_t> r(xcb_shm_query_version_reply(raw, shmCookie, nullptr));
        ext.shm = r != nullptr;
    }
    if (xfixes && xfixes->present) {
        XcbReply<xcb_xfixes_query_version_reply_t> r(xcb_xfixes_query_version_reply(raw, xfixesCookie, nullptr));
        ext.xfixes = r && r->major_version >= 2;
        ext.xfixesFirstEvent = xfixes->first_event;
    }
    if (damage && damage->present) {
        XcbReply<xcb_damage_query_version_reply_t> r(xcb_damage_query_version_reply(raw, damageCookie, nullptr));
        ext.damage = r != nullptr;
        ext.damageFirstEvent = damage->first_event;
    }
    if (composite && composite->present) {
        XcbReply<xcb_composite_query_version_reply_t> r(
            xcb_composite_query_version_reply(raw, compositeCookie, nullptr));
        ext.composite = r && (r->major_version > 0 || r->minor_version >= 2);
    }
    if (randr && randr->present) {
        XcbReply<xcb_randr_query_version_reply_t> r(xcb_randr_query_version_reply(raw, randrCookie, nullptr));
        ext.randrMonitors = r && (r->major_version > 1 || r->minor_version >= 5);
    }
    if (xinput && xinput->present) {
        XcbReply<xcb_input_xi_query_version_reply_t> r(xcb_input_xi_query_version_reply(raw, xinputCookie, nullptr));
        ext.xinput2 = r && r->major_version >= 2;
        ext.xinputOpcode = xinput->major_opcode;
    }
    return c;
}

XcbConnection::~XcbConnection()
{
    if (connection) xcb_disconnect(connection);
}

XcbReply<xcb_get_property_reply_t> XcbConnection::property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type) const
{
    if (name == XCB_ATOM_NONE) return nullptr;
    XcbReply<xcb_get_property_reply_t> reply(
        xcb_get_property_reply(connection, xcb_get_property(connection, 0, window, name, type, 0, 1 << 16), nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE) return nullptr;
    return reply;
}

void XcbConnection::requestRepaint(xcb_window_t window, uint16_t width, uint16_t height) const
{
    // Sent as a 32-byte event, which is what SendEvent carries.
    union {
        xcb_expose_event_t expose;
        char bytes[32];
    } event {};
    event.expose.response_type = XCB_EXPOSE;
    event.expose.window = window;
    event.expose.width = width;
    event.expose.height = height;
    xcb_send_event(connection, 0, window, XCB_EVENT_MASK_EXPOSURE, event.bytes);
}

QRect XcbConnection::screenRect() const
{
    XcbReply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(connection, xcb_get_geometry(connection, root()), nullptr));
    if (!geometry) return QRect(0, 0, rootScreen->width_in_pixels, rootScreen->height_in_pixels);
    return QRect(0, 0, geometry->width, geometry->height);
}
