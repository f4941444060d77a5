#include "platform/x11/OverlayWindow.h"

#include <QSurfaceFormat>

OverlayWindow::OverlayWindow(const QRect& globalGeometry, bool clickThrough, bool translucent)
{
    Qt::WindowFlags flags = Qt::Window | Qt::FramelessWindowHint | Qt::X11BypassWindowManagerHint
        | Qt::WindowStaysOnTopHint | Qt::NoDropShadowWindowHint;
    if (clickThrough) flags |= Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus;
    setFlags(flags);
    if (translucent) {
        QSurfaceFormat format = requestedFormat();
        format.setAlphaBufferSize(8);
        setFormat(format);
    }
    setGeometry(globalGeometry);
}
