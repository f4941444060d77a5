#pragma once

#include <QPoint>
#include <QSize>
#include <QString>

#include <cstdint>
#include <memory>

struct wl_display;
struct wl_registry;
struct wl_seat;
struct zwlr_virtual_pointer_manager_v1;
struct zwlr_virtual_pointer_v1;

// A mouse of the test's own on a wlroots compositor (its virtual-pointer protocol), on the seat
// every client sees: it goes to places of the compositor's layout and presses buttons there, as a
// user's mouse would. Each call returns once the compositor has taken it in.
class VirtualPointer {
public:
    // Null when no compositor answers on `socket` (a path), or it has no virtual pointers.
    // `layout` is the size of the compositor's layout, in its own (unscaled) coordinates.
    static std::unique_ptr<VirtualPointer> connect(const QString& socket, QSize layout);
    ~VirtualPointer();

    void moveTo(QPoint at);
    // A linux/input-event-codes.h button (BTN_LEFT, BTN_RIGHT).
    void press(uint32_t button);
    void release(uint32_t button);

private:
    VirtualPointer() = default;
    void frame();

    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_seat* seat = nullptr;
    zwlr_virtual_pointer_manager_v1* manager = nullptr;
    zwlr_virtual_pointer_v1* pointer = nullptr;
    QSize extent;
    uint32_t time = 0;
};
