#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct wl_compositor;
struct wl_display;
struct wl_output;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct zwlr_layer_shell_v1;
class QSocketNotifier;

// A connection of our own to the compositor on WAYLAND_DISPLAY, for surfaces on its layer shell
// (the armed frame, the area picker): the globals they need, the outputs as the compositor
// describes them, and the reading of its events from Qt's event loop. It is not Qt's connection:
// it works whatever platform Qt runs on, and without any window (the headless run).
//
// Coordinates are those of the screen stream, whose origin is an output's top-left corner in the
// compositor's space, and which counts the output's own pixels.
//
// Main thread.
class LayerShellConnection {
public:
    // One wl_output: where it lies in the compositor's space, its present mode in pixels, its scale.
    struct Output {
        wl_output* output = nullptr;
        uint32_t name = 0;
        QPoint position;
        QSize pixels;
        int scale = 1;
        int refreshMilliHz = 0;

        // The output's rectangle in the stream's coordinates: its origin, its own pixels.
        QRect rect() const { return QRect(position, pixels); }
    };

    // Null when no compositor answers on WAYLAND_DISPLAY, or when it has no layer shell.
    static std::unique_ptr<LayerShellConnection> open();
    ~LayerShellConnection();
    LayerShellConnection(const LayerShellConnection&) = delete;
    LayerShellConnection& operator=(const LayerShellConnection&) = delete;

    wl_display* display() const { return wlDisplay; }
    wl_compositor* compositor() const { return wlCompositor; }
    wl_shm* shm() const { return wlShm; }
    zwlr_layer_shell_v1* layerShell() const { return shell; }
    // The first seat, for the pointer and the keyboard; null when the compositor has none.
    wl_seat* seat() const { return wlSeat; }
    // What the seat has (WL_SEAT_CAPABILITY_*), and a call each time that changes (a mouse plugged
    // in or out).
    uint32_t seatCapabilities() const { return capabilities; }
    void onSeatChanged(std::function<void()> changed) { seatChanged = std::move(changed); }

    // The output the rectangle's middle lies on; else the first; else none.
    const Output* outputFor(const QRectF& rect) const;

    // From now on the compositor's events are read as they come, on this thread's event loop, and
    // `afterEvents` runs after each batch. `broken` runs once when the compositor goes away.
    void watch(std::function<void()> afterEvents, std::function<void()> broken);
    bool isBroken() const { return lost; }
    // Sends what was asked of the compositor.
    void flush();

private:
    LayerShellConnection() = default;
    void readEvents();

    wl_display* wlDisplay = nullptr;
    wl_registry* registry = nullptr;
    wl_compositor* wlCompositor = nullptr;
    wl_shm* wlShm = nullptr;
    zwlr_layer_shell_v1* shell = nullptr;
    wl_seat* wlSeat = nullptr;
    std::vector<std::unique_ptr<Output>> outputs;
    std::unique_ptr<QSocketNotifier> readable;
    std::function<void()> afterEvents;
    std::function<void()> broken;
    std::function<void()> seatChanged;
    uint32_t capabilities = 0;
    bool lost = false;

    struct Listeners;
};
