#include "platform/x11/X11WindowList.h"

#include "platform/x11/ApplicationNames.h"
#include "platform/x11/XcbConnection.h"

#include <algorithm>
#include <cstring>

namespace {

struct Pending {
    xcb_window_t window;
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
    xcb_translate_coordinates_cookie_t origin;
    xcb_get_property_cookie_t wmClass;
    xcb_get_property_cookie_t netName;
    xcb_get_property_cookie_t name;
    xcb_get_property_cookie_t type;
    xcb_get_property_cookie_t state;
    xcb_get_property_cookie_t pid;
};

xcb_get_property_cookie_t ask(xcb_connection_t* c, xcb_window_t w, xcb_atom_t property, xcb_atom_t type)
{
    return xcb_get_property(c, 0, w, property, type, 0, 1 << 14);
}

XcbReply<xcb_get_property_reply_t> answer(xcb_connection_t* c, xcb_get_property_cookie_t cookie)
{
    XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(c, cookie, nullptr));
    if (!reply || reply->type == XCB_ATOM_NONE) return nullptr;
    return reply;
}

QByteArray bytesOf(const xcb_get_property_reply_t* reply)
{
    if (!reply || reply->format != 8) return {};
    return QByteArray(static_cast<const char*>(xcb_get_property_value(reply)), xcb_get_property_value_length(reply));
}

template <typename T> std::vector<T> valuesOf(const xcb_get_property_reply_t* reply)
{
    if (!reply || reply->format != 32) return {};
    const auto* data = static_cast<const T*>(xcb_get_property_value(reply));
    return std::vector<T>(data, data + xcb_get_property_value_length(reply) / 4);
}

} // namespace

QStringList X11WindowList::shellClasses()
{
    return { QStringLiteral("Gnome-shell"), QStringLiteral("plasmashell"), QStringLiteral("Xfdesktop"),
        QStringLiteral("Xfce4-panel"), QStringLiteral("Lxpanel"), QStringLiteral("lxqt-panel"), QStringLiteral("Plank"),
        QStringLiteral("Polybar"), QStringLiteral("Tint2"), QStringLiteral("Conky") };
}

std::vector<xcb_window_t> X11WindowList::clientList(const XcbConnection& connection)
{
    xcb_connection_t* c = connection.get();
    // A window manager that has left a stale check window behind must not hide the real windows:
    // the check window must point at itself.
    auto check = connection.property(
        connection.root(), connection.atom(XcbConnection::NET_SUPPORTING_WM_CHECK), XCB_ATOM_WINDOW);
    const auto checkWindows = valuesOf<xcb_window_t>(check.get());
    if (!checkWindows.empty()) {
        auto self = connection.property(
            checkWindows.front(), connection.atom(XcbConnection::NET_SUPPORTING_WM_CHECK), XCB_ATOM_WINDOW);
        const auto selfWindows = valuesOf<xcb_window_t>(self.get());
        if (!selfWindows.empty() && selfWindows.front() == checkWindows.front()) {
            auto list = connection.property(
                connection.root(), connection.atom(XcbConnection::NET_CLIENT_LIST), XCB_ATOM_WINDOW);
            if (list) return valuesOf<xcb_window_t>(list.get());
        }
    }
    XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(c, xcb_query_tree(c, connection.root()), nullptr));
    if (!tree) return {};
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    std::vector<xcb_window_t> windows(children, children + xcb_query_tree_children_length(tree.get()));
    // Without a window manager only mapped windows that say which application they belong to count.
    std::vector<xcb_get_window_attributes_cookie_t> attributes;
    std::vector<xcb_get_property_cookie_t> classes;
    for (xcb_window_t w : windows) {
        attributes.push_back(xcb_get_window_attributes(c, w));
        classes.push_back(ask(c, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING));
    }
    std::vector<xcb_window_t> kept;
    for (size_t i = 0; i < windows.size(); ++i) {
        XcbReply<xcb_get_window_attributes_reply_t> a(xcb_get_window_attributes_reply(c, attributes[i], nullptr));
        auto wmClass = answer(c, classes[i]);
        if (a && a->map_state == XCB_MAP_STATE_VIEWABLE && wmClass) kept.push_back(windows[i]);
    }
    return kept;
}

std::vector<CaptureWindow> X11WindowList::list(const XcbConnection& connection, ApplicationNames& names)
{
    xcb_connection_t* c = connection.get();
    const std::vector<xcb_window_t> candidates = clientList(connection);

    std::vector<Pending> pending;
    pending.reserve(candidates.size());
    for (xcb_window_t w : candidates) {
        pending.push_back({ w, xcb_get_window_attributes(c, w), xcb_get_geometry(c, w),
            xcb_translate_coordinates(c, w, connection.root(), 0, 0), ask(c, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING),
            ask(c, w, connection.atom(XcbConnection::NET_WM_NAME), connection.atom(XcbConnection::UTF8_STRING)),
            ask(c, w, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY),
            ask(c, w, connection.atom(XcbConnection::NET_WM_WINDOW_TYPE), XCB_ATOM_ATOM),
            ask(c, w, connection.atom(XcbConnection::NET_WM_STATE), XCB_ATOM_ATOM),
            ask(c, w, connection.atom(XcbConnection::NET_WM_PID), XCB_ATOM_CARDINAL) });
    }

    const xcb_atom_t layerZeroTypes[] = { connection.atom(XcbConnection::NET_WM_WINDOW_TYPE_NORMAL),
        connection.atom(XcbConnection::NET_WM_WINDOW_TYPE_DIALOG),
        connection.atom(XcbConnection::NET_WM_WINDOW_TYPE_UTILITY) };
    const xcb_atom_t hidden = connection.atom(XcbConnection::NET_WM_STATE_HIDDEN);
    const xcb_atom_t utf8 = connection.atom(XcbConnection::UTF8_STRING);

    std::vector<CaptureWindow> windows;
    for (const Pending& p : pending) {
        // Every reply is collected, even of a window that vanished meanwhile, so none is left queued.
        XcbReply<xcb_get_window_attributes_reply_t> attributes(
            xcb_get_window_attributes_reply(c, p.attributes, nullptr));
        XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, p.geometry, nullptr));
        XcbReply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(c, p.origin, nullptr));
        auto wmClass = answer(c, p.wmClass);
        auto netName = answer(c, p.netName);
        auto name = answer(c, p.name);
        auto type = answer(c, p.type);
        auto state = answer(c, p.state);
        auto pid = answer(c, p.pid);
        if (!attributes || !geometry || !origin) continue;

        CaptureWindow window;
        window.windowID = p.window;
        window.frame = QRectF(origin->dst_x, origin->dst_y, geometry->width, geometry->height);

        const auto types = valuesOf<xcb_atom_t>(type.get());
        // The first type the window names is the one it means; the rest are fall-backs.
        const bool ordinaryType = types.empty()
            || std::find(std::begin(layerZeroTypes), std::end(layerZeroTypes), types.front())
                != std::end(layerZeroTypes);
        window.windowLayer = (attributes->override_redirect || !ordinaryType) ? 1 : 0;

        const auto states = valuesOf<xcb_atom_t>(state.get());
        const bool minimised = std::find(states.begin(), states.end(), hidden) != states.end();
        window.isOnScreen = attributes->map_state == XCB_MAP_STATE_VIEWABLE && !minimised;

        QString title = QString::fromUtf8(bytesOf(netName.get()));
        if (title.isEmpty() && name) {
            const QByteArray raw = bytesOf(name.get());
            title = name->type == utf8 ? QString::fromUtf8(raw) : QString::fromLatin1(raw);
        }
        if (!title.isEmpty()) window.title = title;

        const QList<QByteArray> classParts = bytesOf(wmClass.get()).split('\0');
        if (classParts.size() >= 2 && !classParts[1].isEmpty()) {
            CaptureApplication app;
            const QString instance = QString::fromLocal8Bit(classParts[0]);
            app.bundleIdentifier = QString::fromLocal8Bit(classParts[1]);
            app.applicationName = names.nameFor(instance, app.bundleIdentifier);
            const auto pids = valuesOf<uint32_t>(pid.get());
            if (!pids.empty()) app.processID = pids.front();
            window.owningApplication = app;
        }
        windows.push_back(window);
    }
    return windows;
}

std::optional<QRectF> X11WindowList::frameOf(const XcbConnection& connection, xcb_window_t window)
{
    xcb_connection_t* c = connection.get();
    auto geometryCookie = xcb_get_geometry(c, window);
    auto originCookie = xcb_translate_coordinates(c, window, connection.root(), 0, 0);
    XcbReply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, geometryCookie, nullptr));
    XcbReply<xcb_translate_coordinates_reply_t> origin(xcb_translate_coordinates_reply(c, originCookie, nullptr));
    if (!geometry || !origin) return std::nullopt;
    return QRectF(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
}
