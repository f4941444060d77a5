#include "platform/x11/OverlayWindow.h"

#include <QSurfaceFormat>

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
    window.setGeometry(globalGeometry);
}
