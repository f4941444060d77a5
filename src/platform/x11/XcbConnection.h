#pragma once

#include <QRect>
#include <QString>

#include <xcb/xcb.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>

// Replies, errors and other results that XCB hands over for the caller to free.
struct XcbFree {
    void operator()(void* p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, XcbFree>;

// One connection to the X server of DISPLAY, with the atoms and extensions capture needs looked up
// once. libxcb is thread-safe, but event queues are per connection, so every capture thread opens
// a connection of its own and a connection's events are read by one thread only.
class XcbConnection {
public:
    enum Atom {
        NET_CLIENT_LIST,
        NET_SUPPORTING_WM_CHECK,
        NET_WM_NAME,
        UTF8_STRING,
        NET_WM_WINDOW_TYPE,
        NET_WM_WINDOW_TYPE_NORMAL,
        NET_WM_WINDOW_TYPE_DIALOG,
        NET_WM_WINDOW_TYPE_UTILITY,
        NET_WM_STATE,
        NET_WM_STATE_HIDDEN,
        NET_WM_PID,
        AtomCount
    };

    struct Extensions {
        bool shm = false;
        bool damage = false;
        uint8_t damageFirstEvent = 0;
        bool xfixes = false;
        uint8_t xfixesFirstEvent = 0;
        bool composite = false; // 0.2 or later, which can name a window's pixmap
        bool randrMonitors = false; // RandR 1.5 or later
        bool xinput2 = false; // XInput 2.0 or later, for raw pointer motion
        uint8_t xinputOpcode = 0;
    };

    // Null with the reason in *error when the display can't be opened.
    static std::unique_ptr<XcbConnection> open(QString* error);
    ~XcbConnection();
    XcbConnection(const XcbConnection&) = delete;
    XcbConnection& operator=(const XcbConnection&) = delete;

    xcb_connection_t* get() const { return connection; }
    // The screen as it was when the connection opened: its size may have changed since (RandR).
    const xcb_screen_t& screen() const { return *rootScreen; }
    xcb_window_t root() const { return rootScreen->root; }
    // The screen's rectangle as the server has it now (one round trip); the size at opening if the
    // server does not answer.
    QRect screenRect() const;
    xcb_atom_t atom(Atom which) const { return atoms[which]; }
    const Extensions& extensions() const { return available; }
    // The connection has failed for good (server gone, protocol error); every request is lost.
    bool isBroken() const { return xcb_connection_has_error(connection) != 0; }

    // Asks the application to paint all of `window` again, as if it had just been uncovered,
    // without clearing what is there now.
    void requestRepaint(xcb_window_t window, uint16_t width, uint16_t height) const;

    // A window property's value, or null if it is missing or not of `type` (XCB_ATOM_ANY for any).
    XcbReply<xcb_get_property_reply_t> property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type) const;

private:
    XcbConnection() = default;

    xcb_connection_t* connection = nullptr;
    const xcb_screen_t* rootScreen = nullptr;
    std::array<xcb_atom_t, AtomCount> atoms {};
    Extensions available;
};
