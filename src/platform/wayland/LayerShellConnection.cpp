#include "platform/wayland/LayerShellConnection.h"

#include "core/Log.h"

#include <QSocketNotifier>

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <wayland-client.h>

// The protocol names an argument `namespace`, a C++ keyword; wayland-client.h is in already.
#define namespace surfaceNamespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

namespace {

template <typename T>
T* bindGlobal(wl_registry* registry, uint32_t name, const wl_interface* interface, uint32_t wanted, uint32_t offered)
{
    return static_cast<T*>(wl_registry_bind(registry, name, interface, std::min(wanted, offered)));
}

} // namespace

struct LayerShellConnection::Listeners {
    static const wl_output_listener output;
    static const wl_seat_listener seat;
    static const wl_registry_listener registry;
};

const wl_output_listener LayerShellConnection::Listeners::output = {
    [](void* data, wl_output*, int32_t x, int32_t y, int32_t, int32_t, int32_t, const char*, const char*, int32_t) {
        static_cast<Output*>(data)->position = QPoint(x, y);
    },
    [](void* data, wl_output*, uint32_t flags, int32_t width, int32_t height, int32_t refresh) {
        if (!(flags & WL_OUTPUT_MODE_CURRENT)) return;
        auto* o = static_cast<Output*>(data);
        o->pixels = QSize(width, height);
        o->refreshMilliHz = refresh;
    },
    [](void*, wl_output*) {},
    [](void* data, wl_output*, int32_t factor) { static_cast<Output*>(data)->scale = std::max(1, factor); },
    [](void*, wl_output*, const char*) {},
    [](void*, wl_output*, const char*) {},
};

const wl_seat_listener LayerShellConnection::Listeners::seat = {
    [](void* data, wl_seat*, uint32_t capabilities) {
        auto* c = static_cast<LayerShellConnection*>(data);
        c->capabilities = capabilities;
        if (c->seatChanged) c->seatChanged();
    },
    [](void*, wl_seat*, const char*) {},
};

const wl_registry_listener LayerShellConnection::Listeners::registry = {
    [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t version) {
        auto* c = static_cast<LayerShellConnection*>(data);
        if (std::strcmp(interface, wl_compositor_interface.name) == 0) {
            c->wlCompositor = bindGlobal<wl_compositor>(registry, name, &wl_compositor_interface, 4, version);
        } else if (std::strcmp(interface, wl_shm_interface.name) == 0) {
            c->wlShm = bindGlobal<wl_shm>(registry, name, &wl_shm_interface, 1, version);
        } else if (std::strcmp(interface, zwlr_layer_shell_v1_interface.name) == 0) {
            c->shell = bindGlobal<zwlr_layer_shell_v1>(registry, name, &zwlr_layer_shell_v1_interface, 3, version);
        } else if (std::strcmp(interface, wl_seat_interface.name) == 0 && !c->wlSeat) {
            c->wlSeat = bindGlobal<wl_seat>(registry, name, &wl_seat_interface, 5, version);
            wl_seat_add_listener(c->wlSeat, &seat, c);
        } else if (std::strcmp(interface, wl_output_interface.name) == 0) {
            auto o = std::make_unique<Output>();
            o->name = name;
            o->output = bindGlobal<wl_output>(registry, name, &wl_output_interface, 2, version);
            wl_output_add_listener(o->output, &output, o.get());
            c->outputs.push_back(std::move(o));
        }
    },
    [](void* data, wl_registry*, uint32_t name) {
        // An output unplugged: a surface on it is closed by the compositor.
        auto* c = static_cast<LayerShellConnection*>(data);
        std::erase_if(c->outputs, [name](const std::unique_ptr<Output>& o) {
            if (o->name != name) return false;
            wl_output_destroy(o->output);
            return true;
        });
    },
};

std::unique_ptr<LayerShellConnection> LayerShellConnection::open()
{
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return nullptr;
    std::unique_ptr<LayerShellConnection> c(new LayerShellConnection);
    c->wlDisplay = wl_display_connect(nullptr);
    if (!c->wlDisplay) return nullptr;
    c->registry = wl_display_get_registry(c->wlDisplay);
    wl_registry_add_listener(c->registry, &Listeners::registry, c.get());
    // The globals, then what the outputs and the seat say of themselves.
    if (wl_display_roundtrip(c->wlDisplay) < 0 || wl_display_roundtrip(c->wlDisplay) < 0) return nullptr;
    if (!c->shell || !c->wlCompositor || !c->wlShm) return nullptr;
    return c;
}

LayerShellConnection::~LayerShellConnection()
{
    readable.reset();
    for (const auto& o : outputs)
        if (o->output) wl_output_destroy(o->output);
    if (wlSeat) wl_seat_destroy(wlSeat);
    if (shell) zwlr_layer_shell_v1_destroy(shell);
    if (wlShm) wl_shm_destroy(wlShm);
    if (wlCompositor) wl_compositor_destroy(wlCompositor);
    if (registry) wl_registry_destroy(registry);
    if (wlDisplay) wl_display_disconnect(wlDisplay);
}

const LayerShellConnection::Output* LayerShellConnection::outputFor(const QRectF& rect) const
{
    for (const auto& o : outputs)
        if (o->rect().contains(rect.center().toPoint())) return o.get();
    return outputs.empty() ? nullptr : outputs.front().get();
}

void LayerShellConnection::watch(std::function<void()> after, std::function<void()> onBroken)
{
    afterEvents = std::move(after);
    broken = std::move(onBroken);
    readable = std::make_unique<QSocketNotifier>(wl_display_get_fd(wlDisplay), QSocketNotifier::Read);
    QObject::connect(readable.get(), &QSocketNotifier::activated, readable.get(), [this] { readEvents(); });
}

void LayerShellConnection::flush()
{
    if (!lost) wl_display_flush(wlDisplay);
}

void LayerShellConnection::readEvents()
{
    // Never blocks: a roundtrip since the notifier fired may have read what was there.
    while (wl_display_prepare_read(wlDisplay) != 0)
        wl_display_dispatch_pending(wlDisplay);
    pollfd waiting { wl_display_get_fd(wlDisplay), POLLIN, 0 };
    bool failed = false;
    if (poll(&waiting, 1, 0) > 0 && !(waiting.revents & POLLIN)) {
        wl_display_cancel_read(wlDisplay);
        failed = true;
    } else if (waiting.revents & POLLIN) {
        failed = wl_display_read_events(wlDisplay) < 0;
    } else {
        wl_display_cancel_read(wlDisplay);
    }
    if (failed || wl_display_dispatch_pending(wlDisplay) < 0) {
        logLine(QStringLiteral("Wayland: the connection to the compositor broke"));
        lost = true;
        readable->setEnabled(false);
        if (broken) broken();
        return;
    }
    if (afterEvents) afterEvents();
    wl_display_flush(wlDisplay);
}
