#pragma once

#include <QRasterWindow>

// A window of ours laid over other programs': override-redirect (no window manager frames, moves
// or stacks it), above the others, on every workspace since it belongs to none. The area picker
// and the armed frame are made of these.
class OverlayWindow : public QRasterWindow {
public:
    // `clickThrough`: an empty input shape, so that every click and key goes to what lies below.
    // `translucent`: an ARGB visual, for a desktop whose compositing manager blends it.
    OverlayWindow(const QRect& globalGeometry, bool clickThrough, bool translucent);
};
