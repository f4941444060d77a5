#pragma once

#include "platform/AreaPicker.h"

#include <QRect>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LayerShellConnection;

// The area picker on a Wayland desktop that has the wlroots layer shell (sway and other wlroots
// compositors, KDE Plasma, Hyprland): one surface on the overlay layer over the whole output that
// the screen stream shows, which takes the pointer and the keyboard. The live desktop shows through
// it under a dim veil, the dragged rectangle clear and outlined with its size above it, as on X11.
//
// The left button drags; Esc, the right button, a drag too small or the compositor closing the
// surface cancels. The rectangle comes back in the stream's coordinates (origin: the output's
// top-left corner in the compositor's space; the output's own pixels), which are also what the area
// monitor reads. With no picture of the screen yet, the pick ends at once with none: it never makes
// the desktop ask what to share.
//
// Like the armed frame, the surface is ours alone, on a connection of its own: it works whatever
// platform Qt runs on, and without any window (the headless run); Qt's fonts need a
// QGuiApplication all the same.
//
// Main thread.
class LayerShellAreaPicker final : public AreaPicker {
public:
    // `sharedScreen` gives the screen the stream shows, in the stream's coordinates; none before the
    // stream's first picture. Null when no compositor answers on WAYLAND_DISPLAY, or when it has no
    // layer shell.
    static std::unique_ptr<LayerShellAreaPicker> connect(std::function<std::optional<QRect>()> sharedScreen);
    ~LayerShellAreaPicker() override;

    // Ends a pick already running without telling its caller, then starts one.
    void pick(Completion completion) override;
    // Takes the surface of a pick down without calling its completion.
    void dismiss();

    // The output the present pick covers, in the stream's coordinates; empty when no pick runs.
    QRect covered() const;

private:
    struct Surface;
    struct Input;

    LayerShellAreaPicker(
        std::unique_ptr<LayerShellConnection> connection, std::function<std::optional<QRect>()> screen);
    void afterEvents();

    std::unique_ptr<LayerShellConnection> wayland;
    std::function<std::optional<QRect>()> sharedScreen;
    std::unique_ptr<Input> input;
    std::unique_ptr<Surface> surface;
    // Surfaces taken down while their own event was being handled; freed once that is over.
    std::vector<std::unique_ptr<Surface>> leaving;
};
