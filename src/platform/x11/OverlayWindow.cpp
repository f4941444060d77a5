#include "platform/x11/OverlayWindow.h"

#include <QGuiApplication>
#include <QScreen>
#include <QSurfaceFormat>

#include <xcb/xfixes.h>

#include <vector>

namespace {

// Qt lays windows out in device-independent pixels, scaled about each screen's top-left corner,
// which stays where X has it (a scale factor from Xft.dpi or QT_SCALE_FACTOR).
QRect qtGeometry(const QRect& x11)
{
    for (const QScreen* screen : QGuiApplication::screens()) {
        const qreal ratio = screen->devicePixelRatio();
        const QPoint origin = screen->geometry().topLeft();
        if (ratio == 1 || !QRect(origin, (QSizeF(screen->geometry().size()) * ratio).toSize()).contains(x11.topLeft()))
            continue;
        return QRectF(QPointF(origin) + QPointF(x11.topLeft() - origin) / ratio, QSizeF(x11.size()) / ratio).toRect();
    }
    return x11;
}

} // namespace

void makeOverlay(QWindow& window, const QRect& globalGeometry, bool clickThrough, bool translucent)
{
    Qt::WindowFlags flags = Qt::Window | Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint
        | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint;
    if (clickThrough) flags |= Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus;
    window.setFlags(flags);
    if (translucent) {
        QSurfaceFormat format = window.requestedFormat();
        format.setAlphaBufferSize(8);
        window.setFormat(format);
    }
    window.setGeometry(qtGeometry(globalGeometry));
    // Scaled, Qt's pixels land on X's rounded; the window goes exactly where it was meant to, and
    // Qt learns it from the server.
    window.create();
    if (auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
        xcb_connection_t* c = x11->connection();
        const uint32_t placed[] = { uint32_t(globalGeometry.x()), uint32_t(globalGeometry.y()),
            uint32_t(globalGeometry.width()), uint32_t(globalGeometry.height()) };
        xcb_configure_window(c, xcb_window_t(window.winId()),
            XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, placed);
        xcb_flush(c);
    }
}

void shapeOverlay(QWindow& window, const QRegion& region)
{
    // Through XFixes on Qt's own connection: QWindow::setMask would take the region in Qt's scaled
    // pixels and round it.
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11) return;
    xcb_connection_t* c = x11->connection();
    std::vector<xcb_rectangle_t> rects;
    for (const QRect& rect : region)
        rects.push_back({ int16_t(rect.x()), int16_t(rect.y()), uint16_t(rect.width()), uint16_t(rect.height()) });
    const xcb_xfixes_region_t shape = xcb_generate_id(c);
    xcb_xfixes_create_region(c, shape, uint32_t(rects.size()), rects.data());
    xcb_xfixes_set_window_shape_region(c, xcb_window_t(window.winId()), XCB_SHAPE_SK_BOUNDING, 0, 0, shape);
    xcb_xfixes_destroy_region(c, shape);
    xcb_flush(c);
}
