#pragma once

#include <QRasterWindow>
#include <QRegion>

// Makes `window` one of ours laid over other programs': override-redirect (no window manager
// frames, moves or stacks it), above the others, on every workspace since it belongs to none.
// `globalGeometry` counts the display's own pixels, as X does, whatever scale Qt draws this
// application at. `clickThrough`: an empty input shape, so that every click and key goes to what
// lies below. `translucent`: an ARGB visual, for a desktop whose compositing manager blends it.
// The window is created (it has its X id), not shown.
void makeOverlay(QWindow& window, const QRect& globalGeometry, bool clickThrough, bool translucent);

// Cuts `window` (created) down to `region`, in the display's pixels from the window's top-left
// corner: nothing of it is drawn elsewhere, and what lies below shows through.
void shapeOverlay(QWindow& window, const QRegion& region);

// An overlay painted through paint events. The area picker is made of these.
class OverlayWindow : public QRasterWindow {
public:
    OverlayWindow(const QRect& globalGeometry, bool clickThrough, bool translucent)
    {
        makeOverlay(*this, globalGeometry, clickThrough, translucent);
    }
};
