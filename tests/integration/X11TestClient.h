#pragma once

#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QRect>
#include <QString>

#include <xcb/xcb.h>

#include <cstdint>

// A tiny X client for the capture tests: plain windows with a class and a title, painted with
// solid rectangles or pictures. It talks to the X server of DISPLAY on its own connection and waits for the
// server after every change, so that what it painted is on the screen when a call returns.
class X11TestClient {
public:
    struct Window {
        QRect rect {};
        QByteArray wmClass {}; // the class; the instance is its lower-case form
        QString title {}; // empty: no title at all
        bool overrideRedirect = false;
        QByteArray windowType {}; // e.g. "_NET_WM_WINDOW_TYPE_DOCK"; empty: none
        QColor background = Qt::black;
    };

    X11TestClient();
    ~X11TestClient();
    bool isConnected() const { return connection && !xcb_connection_has_error(connection); }

    // Creates and maps the window and waits until it is viewable.
    xcb_window_t create(const Window& window);
    void fill(xcb_window_t window, const QRect& rect, const QColor& colour);
    // Paints the window's `size` with the picture of IndexedFrames: a 4x4 grid of black and white
    // blocks, one bit of `index` each, in two requests.
    void paintIndex(xcb_window_t window, const QSize& size, int index);
    // Puts a picture's pixels into the window with its top left at `at`.
    void draw(xcb_window_t window, QPoint at, const QImage& picture);
    void configure(xcb_window_t window, const QRect& rect);
    // Moves the pointer to `at` on the screen.
    void warpPointer(QPoint at);
    void destroy(xcb_window_t window);
    // A round trip: everything sent before has been handled by the server.
    void sync();
    // Whether the window manager (if any) lists the window in its client list; false without one.
    bool listedByWindowManager(xcb_window_t window);

private:
    xcb_atom_t atom(const char* name);

    xcb_connection_t* connection = nullptr;
    xcb_screen_t* screen = nullptr;
    xcb_gcontext_t gc = 0;
};
