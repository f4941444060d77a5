#include "support/VirtualPointer.h"

#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"

#include <cstring>
#include <wayland-client.h>

namespace {

const wl_registry_listener registryListener = {
    [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
        auto* found = static_cast<std::pair<wl_seat*, zwlr_virtual_pointer_manager_v1*>*>(data);
        if (std::strcmp(interface, wl_seat_interface.name) == 0 && !found->first)
            found->first = static_cast<wl_seat*>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
        else if (std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0)
            found->second = static_cast<zwlr_virtual_pointer_manager_v1*>(
                wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1));
    },
    [](void*, wl_registry*, uint32_t) {},
};

} // namespace

std::unique_ptr<VirtualPointer> VirtualPointer::connect(const QString& socket, QSize layout)
{
    std::unique_ptr<VirtualPointer> p(new VirtualPointer);
    p->extent = layout;
    p->display = wl_display_connect(socket.toLocal8Bit().constData());
    if (!p->display) return nullptr;
    p->registry = wl_display_get_registry(p->display);
    std::pair<wl_seat*, zwlr_virtual_pointer_manager_v1*> found {};
    wl_registry_add_listener(p->registry, &registryListener, &found);
    const int answered = wl_display_roundtrip(p->display);
    p->seat = found.first;
    p->manager = found.second;
    if (answered < 0 || !p->manager) return nullptr;
    p->pointer = zwlr_virtual_pointer_manager_v1_create_virtual_pointer(p->manager, p->seat);
    if (wl_display_roundtrip(p->display) < 0) return nullptr;
    return p;
}

VirtualPointer::~VirtualPointer()
{
    if (pointer) zwlr_virtual_pointer_v1_destroy(pointer);
    if (manager) zwlr_virtual_pointer_manager_v1_destroy(manager);
    if (seat) wl_seat_destroy(seat);
    if (registry) wl_registry_destroy(registry);
    if (display) wl_display_disconnect(display);
}

void VirtualPointer::moveTo(QPoint at)
{
    zwlr_virtual_pointer_v1_motion_absolute(
        pointer, time += 10, uint32_t(at.x()), uint32_t(at.y()), uint32_t(extent.width()), uint32_t(extent.height()));
    frame();
}

void VirtualPointer::press(uint32_t button)
{
    zwlr_virtual_pointer_v1_button(pointer, time += 10, button, WL_POINTER_BUTTON_STATE_PRESSED);
    frame();
}

void VirtualPointer::release(uint32_t button)
{
    zwlr_virtual_pointer_v1_button(pointer, time += 10, button, WL_POINTER_BUTTON_STATE_RELEASED);
    frame();
}

void VirtualPointer::frame()
{
    zwlr_virtual_pointer_v1_frame(pointer);
    wl_display_roundtrip(display);
}
