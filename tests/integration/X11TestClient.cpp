#include "X11TestClient.h"

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

uint32_t pixelOf(const QColor& colour)
{
    return (uint32_t(colour.red()) << 16) | (uint32_t(colour.green()) << 8) | uint32_t(colour.blue());
}

} // namespace

X11TestClient::X11TestClient()
{
    connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) return;
    screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    gc = xcb_generate_id(connection);
    xcb_create_gc(connection, gc, screen->root, 0, nullptr);
    sync();
}

X11TestClient::~X11TestClient()
{
    if (connection) xcb_disconnect(connection);
}

xcb_atom_t X11TestClient::atom(const char* name)
{
    xcb_intern_atom_reply_t* reply
        = xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    std::free(reply);
    return result;
}

void X11TestClient::sync()
{
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

xcb_window_t X11TestClient::create(const Window& w)
{
    const xcb_window_t id = xcb_generate_id(connection);
    const uint32_t values[] = { pixelOf(w.background), uint32_t(w.overrideRedirect),
        XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY };
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, id, screen->root, int16_t(w.rect.x()), int16_t(w.rect.y()),
        uint16_t(w.rect.width()), uint16_t(w.rect.height()), 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
        XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    if (!w.wmClass.isEmpty()) {
        const QByteArray value = w.wmClass.toLower() + '\0' + w.wmClass + '\0';
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
            uint32_t(value.size()), value.constData());
    }
    if (!w.title.isEmpty()) {
        const QByteArray title = w.title.toUtf8();
        xcb_change_property(connection, XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_NAME"), atom("UTF8_STRING"), 8,
            uint32_t(title.size()), title.constData());
    }
    if (!w.windowType.isEmpty()) {
        const xcb_atom_t type = atom(w.windowType.constData());
        xcb_change_property(
            connection, XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 32, 1, &type);
    }
    // Ask the window manager to keep the position we gave.
    const uint32_t hints[18] = { 1 | 4 | 8, uint32_t(w.rect.x()), uint32_t(w.rect.y()), uint32_t(w.rect.width()),
        uint32_t(w.rect.height()) };
    xcb_change_property(
        connection, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, 32, 18, hints);
    xcb_map_window(connection, id);
    sync();
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 5000) {
        xcb_get_window_attributes_reply_t* a
            = xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, id), nullptr);
        const bool viewable = a && a->map_state == XCB_MAP_STATE_VIEWABLE;
        std::free(a);
        if (viewable) break;
        QThread::msleep(10);
    }
    // Expose events are not answered: the tests paint explicitly.
    while (xcb_generic_event_t* e = xcb_poll_for_event(connection))
        std::free(e);
    return id;
}

void X11TestClient::paintIndex(xcb_window_t window, const QSize& size, int index)
{
    std::vector<xcb_rectangle_t> cells[2];
    for (int bit = 0; bit < 16; ++bit) {
        const int col = bit % 4, row = bit / 4;
        cells[(index >> bit) & 1].push_back({ int16_t(col * size.width() / 4), int16_t(row * size.height() / 4),
            uint16_t(size.width() / 4), uint16_t(size.height() / 4) });
    }
    for (int white = 0; white < 2; ++white) {
        const uint32_t foreground = pixelOf(white ? Qt::white : Qt::black);
        xcb_change_gc(connection, gc, XCB_GC_FOREGROUND, &foreground);
        xcb_poly_fill_rectangle(connection, window, gc, uint32_t(cells[white].size()), cells[white].data());
    }
    sync();
}

void X11TestClient::fill(xcb_window_t window, const QRect& rect, const QColor& colour)
{
    const uint32_t foreground = pixelOf(colour);
    xcb_change_gc(connection, gc, XCB_GC_FOREGROUND, &foreground);
    const xcb_rectangle_t r { int16_t(rect.x()), int16_t(rect.y()), uint16_t(rect.width()), uint16_t(rect.height()) };
    xcb_poly_fill_rectangle(connection, window, gc, 1, &r);
    sync();
}

void X11TestClient::draw(xcb_window_t window, QPoint at, const QImage& picture)
{
    const QImage pixels = picture.convertToFormat(QImage::Format_RGB32);
    const auto rowBytes = uint32_t(pixels.width()) * 4;
    // As many rows a request as the server takes (its limit counts 4-byte units, header included).
    const uint32_t limit = xcb_get_maximum_request_length(connection) * 4 - 64;
    const int rowsPerRequest = std::max(1, int(limit / rowBytes));
    for (int y = 0; y < pixels.height(); y += rowsPerRequest) {
        const int rows = std::min(rowsPerRequest, pixels.height() - y);
        xcb_put_image(connection, XCB_IMAGE_FORMAT_Z_PIXMAP, window, gc, uint16_t(pixels.width()), uint16_t(rows),
            int16_t(at.x()), int16_t(at.y() + y), 0, screen->root_depth, rowBytes * uint32_t(rows),
            pixels.constScanLine(y));
    }
    sync();
}

void X11TestClient::configure(xcb_window_t window, const QRect& rect)
{
    const uint32_t values[]
        = { uint32_t(rect.x()), uint32_t(rect.y()), uint32_t(rect.width()), uint32_t(rect.height()) };
    xcb_configure_window(connection, window,
        XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, values);
    sync();
}

void X11TestClient::warpPointer(QPoint at)
{
    xcb_warp_pointer(connection, XCB_NONE, screen->root, 0, 0, 0, 0, int16_t(at.x()), int16_t(at.y()));
    sync();
}

void X11TestClient::destroy(xcb_window_t window)
{
    xcb_destroy_window(connection, window);
    sync();
}

bool X11TestClient::listedByWindowManager(xcb_window_t window)
{
    xcb_get_property_reply_t* reply = xcb_get_property_reply(connection,
        xcb_get_property(connection, 0, screen->root, atom("_NET_CLIENT_LIST"), XCB_ATOM_WINDOW, 0, 1024), nullptr);
    bool found = false;
    if (reply && reply->format == 32) {
        const auto* ids = static_cast<const xcb_window_t*>(xcb_get_property_value(reply));
        for (int i = 0; i < xcb_get_property_value_length(reply) / 4; ++i)
            found = found || ids[i] == window;
    }
    std::free(reply);
    return found;
}
