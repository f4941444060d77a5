#pragma once

#include "platform/ArmedFrame.h"

#include <QElapsedTimer>
#include <QObject>
#include <QRect>
#include <QTimer>

#include <functional>
#include <memory>

class LayerShellConnection;

// The armed frame on a Wayland desktop that has the wlroots layer shell (sway and other wlroots
// compositors, KDE Plasma, Hyprland): one surface on the overlay layer, above every window, as large
// as the frame's band and placed over the watched rectangle of the output it lies on. Its input
// region is empty, so every click goes to the program below, and it never takes the keyboard.
//
// The surface is ours alone, on a connection of its own to the compositor (WAYLAND_DISPLAY), not
// one of Qt's windows: it works the same whatever platform Qt runs on, and without any window (the
// headless run). Its pictures are painted by hand into shared memory, two buffers in turn, and only
// where the picture changed.
//
// Nothing of the frame lies inside the watched rectangle: the monitor reads the same screen, which
// the compositor shares with the frame on it.
//
// Coordinates are those of the screen stream, whose origin is the output's top-left corner in the
// compositor's space; on an output scaled by the desktop the stream counts the output's pixels, and
// the surface is drawn at that scale.
//
// Main thread.
class LayerShellArmedFrame final : public QObject, public ArmedFrame {
    Q_OBJECT
public:
    // Null when no compositor answers on WAYLAND_DISPLAY, or when it has no layer shell.
    // `sharesScreen` says whether the stream the rectangles are taken from is a screen's: a
    // window's pictures lie nowhere on the screen in particular, and then no frame is shown (the
    // window and the tray still say that the monitor is armed). Without it, always.
    static std::unique_ptr<LayerShellArmedFrame> connect(std::function<bool()> sharesScreen = {});
    // Whether connect() would give a frame; needs no application object.
    static bool available();
    ~LayerShellArmedFrame() override;

    void show(const QRectF& globalRect, AreaOverlayStyle style) override;
    void dismiss() override;

    // Where the surface of the present frame lies on its output, in the output's own pixels;
    // empty when no frame stands (or the compositor closed it).
    QRect placement() const;
    bool isAnimating() const { return ticker.isActive(); }

private:
    struct Surface;

    LayerShellArmedFrame(std::unique_ptr<LayerShellConnection> connection, std::function<bool()> sharesScreen);
    void tick();
    void afterEvents();

    std::unique_ptr<LayerShellConnection> wayland;
    std::function<bool()> sharesScreen;
    std::unique_ptr<Surface> surface;
    QTimer ticker;
    QElapsedTimer clock;
};
