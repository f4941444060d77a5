#include "platform/wayland/LayerShellArmedFrame.h"

#include "core/Log.h"
#include "monitor/ArmedFrameDrawing.h"
#include "monitor/ArmedFramePicture.h"

#include <QImage>
#include <QSocketNotifier>

#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>
#include <wayland-client.h>

// The protocol names an argument `namespace`, a C++ keyword; wayland-client.h is in already.
#define namespace surfaceNamespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

namespace {

// One wl_output as the compositor describes it: where it lies in the compositor's space, its
// present mode in pixels, its scale.
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

template <typename T>
T* bindGlobal(wl_registry* registry, uint32_t name, const wl_interface* interface, uint32_t wanted, uint32_t offered)
{
    return static_cast<T*>(wl_registry_bind(registry, name, interface, std::min(wanted, offered)));
}

} // namespace

struct LayerShellArmedFrame::Connection {
    wl_display* display = nullptr;
    wl_registry* registry = nullptr;
    wl_compositor* compositor = nullptr;
    wl_shm* shm = nullptr;
    zwlr_layer_shell_v1* layerShell = nullptr;
    std::vector<std::unique_ptr<Output>> outputs;
    std::unique_ptr<QSocketNotifier> readable;

    ~Connection()
    {
        readable.reset();
        for (const auto& o : outputs)
            if (o->output) wl_output_destroy(o->output);
        if (layerShell) zwlr_layer_shell_v1_destroy(layerShell);
        if (shm) wl_shm_destroy(shm);
        if (compositor) wl_compositor_destroy(compositor);
        if (registry) wl_registry_destroy(registry);
        if (display) wl_display_disconnect(display);
    }

    // The output the rectangle's middle lies on; else the first; else none.
    const Output* outputFor(const QRectF& rect) const
    {
        for (const auto& o : outputs)
            if (o->rect().contains(rect.center().toPoint())) return o.get();
        return outputs.empty() ? nullptr : outputs.front().get();
    }

    static const wl_output_listener outputListener;
    static const wl_registry_listener registryListener;
};

const wl_output_listener LayerShellArmedFrame::Connection::outputListener = {
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

const wl_registry_listener LayerShellArmedFrame::Connection::registryListener = {
    [](void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t version) {
        auto* c = static_cast<Connection*>(data);
        if (std::strcmp(interface, wl_compositor_interface.name) == 0) {
            c->compositor = bindGlobal<wl_compositor>(registry, name, &wl_compositor_interface, 4, version);
        } else if (std::strcmp(interface, wl_shm_interface.name) == 0) {
            c->shm = bindGlobal<wl_shm>(registry, name, &wl_shm_interface, 1, version);
        } else if (std::strcmp(interface, zwlr_layer_shell_v1_interface.name) == 0) {
            c->layerShell = bindGlobal<zwlr_layer_shell_v1>(registry, name, &zwlr_layer_shell_v1_interface, 3, version);
        } else if (std::strcmp(interface, wl_output_interface.name) == 0) {
            auto o = std::make_unique<Output>();
            o->name = name;
            o->output = bindGlobal<wl_output>(registry, name, &wl_output_interface, 2, version);
            wl_output_add_listener(o->output, &outputListener, o.get());
            c->outputs.push_back(std::move(o));
        }
    },
    [](void* data, wl_registry*, uint32_t name) {
        // An output unplugged: a frame on it is closed by the compositor.
        auto* c = static_cast<Connection*>(data);
        std::erase_if(c->outputs, [name](const std::unique_ptr<Output>& o) {
            if (o->name != name) return false;
            wl_output_destroy(o->output);
            return true;
        });
    },
};

// One frame on the screen: the layer surface, its two buffers in one shared-memory pool, and the
// picture they show.
struct LayerShellArmedFrame::Surface {
    struct Buffer {
        wl_buffer* buffer = nullptr;
        QImage pixels; // a view on the pool's memory
        bool busy = false; // the compositor may read it until it releases it
        QRegion stale; // where it differs from the picture
    };

    Connection& wayland;
    wl_surface* surface = nullptr;
    zwlr_layer_surface_v1* layer = nullptr;
    int fd = -1;
    void* memory = MAP_FAILED;
    size_t bytes = 0;
    std::array<Buffer, 2> buffers;
    std::optional<ArmedFramePicture> picture;
    QRect placement; // on the output, in its pixels
    int scale = 1;
    double interval = 1.0 / 60; // seconds between two refreshes of the output
    bool configured = false;
    bool closed = false;
    // Changed in the picture since the last commit.
    QRegion owed;

    explicit Surface(Connection& connection)
        : wayland(connection)
    {
    }

    ~Surface()
    {
        for (Buffer& b : buffers)
            if (b.buffer) wl_buffer_destroy(b.buffer);
        if (layer) zwlr_layer_surface_v1_destroy(layer);
        if (surface) wl_surface_destroy(surface);
        if (memory != MAP_FAILED) munmap(memory, bytes);
        if (fd >= 0) close(fd);
        wl_display_flush(wayland.display);
    }

    static const zwlr_layer_surface_v1_listener layerListener;
    static const wl_buffer_listener bufferListener;

    // Makes the surface and its buffers; false (with the reason logged) when the compositor or the
    // memory refuse.
    bool create(const QRectF& watched, AreaOverlayStyle style, const Output* output)
    {
        const QRect origin = output ? output->rect() : QRect();
        scale = output ? output->scale : 1;
        if (output && output->refreshMilliHz > 1000) interval = 1000.0 / output->refreshMilliHz;
        QRect reach = ArmedFrameDrawing::paintedRegion(watched).boundingRect();
        if (output) reach &= origin;
        if (reach.isEmpty()) return false;
        // Grown to whole surface points of the output, so that the buffer is a whole number of them.
        const auto down = [this](int v) { return int(std::floor(double(v) / scale)) * scale; };
        const auto up = [this](int v) { return int(std::ceil(double(v) / scale)) * scale; };
        const QRect local = reach.translated(-origin.topLeft());
        placement = QRect(QPoint(down(local.left()), down(local.top())),
            QPoint(up(local.right() + 1) - 1, up(local.bottom() + 1) - 1));
        reach = placement.translated(origin.topLeft());
        const QSize size = reach.size();

        const int stride = size.width() * 4;
        const size_t one = size_t(stride) * size_t(size.height());
        bytes = one * buffers.size();
        fd = memfd_create("velotape-armed-frame", MFD_CLOEXEC);
        if (fd < 0 || ftruncate(fd, off_t(bytes)) != 0) {
            logLine(QStringLiteral("Armed frame: no shared memory for the frame: %1").arg(strerror(errno)));
            return false;
        }
        memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (memory == MAP_FAILED) {
            logLine(QStringLiteral("Armed frame: no shared memory for the frame: %1").arg(strerror(errno)));
            return false;
        }
        wl_shm_pool* pool = wl_shm_create_pool(wayland.shm, fd, int32_t(bytes));
        for (size_t i = 0; i < buffers.size(); ++i) {
            Buffer& b = buffers[i];
            b.buffer = wl_shm_pool_create_buffer(
                pool, int32_t(i * one), size.width(), size.height(), stride, WL_SHM_FORMAT_ARGB8888);
            wl_buffer_add_listener(b.buffer, &bufferListener, &b);
            // Little-endian ARGB8888 is Qt's premultiplied ARGB32; the pool starts transparent.
            b.pixels = QImage(static_cast<uchar*>(memory) + i * one, size.width(), size.height(), stride,
                QImage::Format_ARGB32_Premultiplied);
        }
        wl_shm_pool_destroy(pool);
        picture.emplace(size, watched.translated(-reach.topLeft()), style);
        for (Buffer& b : buffers)
            b.stale = picture->band();

        surface = wl_compositor_create_surface(wayland.compositor);
        // Clicks and the pointer go to whatever lies below.
        wl_region* nothing = wl_compositor_create_region(wayland.compositor);
        wl_surface_set_input_region(surface, nothing);
        wl_region_destroy(nothing);
        wl_surface_set_buffer_scale(surface, scale);
        layer = zwlr_layer_shell_v1_get_layer_surface(wayland.layerShell, surface, output ? output->output : nullptr,
            ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, "velotape-armed-frame");
        zwlr_layer_surface_v1_add_listener(layer, &layerListener, this);
        zwlr_layer_surface_v1_set_size(layer, uint32_t(size.width() / scale), uint32_t(size.height() / scale));
        zwlr_layer_surface_v1_set_anchor(layer, ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT);
        // Placed from the output's corner, not pushed aside by panels.
        zwlr_layer_surface_v1_set_exclusive_zone(layer, -1);
        zwlr_layer_surface_v1_set_margin(layer, placement.y() / scale, 0, 0, placement.x() / scale);
        zwlr_layer_surface_v1_set_keyboard_interactivity(layer, ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_NONE);
        wl_surface_commit(surface);
        // The first picture may go up only once the compositor has answered with a configure.
        if (wl_display_roundtrip(wayland.display) < 0 || !configured) {
            logLine(QStringLiteral("Armed frame: the compositor did not place the frame"));
            return false;
        }
        return !closed;
    }

    // Brings the picture to `seconds` and shows what changed.
    void advance(double seconds)
    {
        if (closed || !picture) return;
        const QRegion changes = picture->changesAt(seconds);
        if (changes.isEmpty()) return;
        picture->paint(seconds, changes);
        owed += changes;
        for (Buffer& b : buffers)
            b.stale += changes;
        present();
    }

    // Commits a free buffer brought up to the picture; with none free, what is owed waits for the
    // next release.
    void present()
    {
        if (closed || !configured || owed.isEmpty()) return;
        Buffer* free = nullptr;
        for (Buffer& b : buffers)
            if (!b.busy) free = &b;
        if (!free) return;
        const QImage& from = picture->image();
        for (const QRect& r : free->stale) {
            for (int y = r.top(); y <= r.bottom(); ++y)
                std::memcpy(free->pixels.scanLine(y) + r.left() * 4, from.constScanLine(y) + r.left() * 4,
                    size_t(r.width()) * 4);
        }
        free->stale = {};
        wl_surface_attach(surface, free->buffer, 0, 0);
        for (const QRect& r : owed)
            wl_surface_damage_buffer(surface, r.x(), r.y(), r.width(), r.height());
        wl_surface_commit(surface);
        free->busy = true;
        owed = {};
        wl_display_flush(wayland.display);
    }
};

const zwlr_layer_surface_v1_listener LayerShellArmedFrame::Surface::layerListener = {
    [](void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t, uint32_t) {
        auto* s = static_cast<Surface*>(data);
        zwlr_layer_surface_v1_ack_configure(layer, serial);
        const bool first = !s->configured;
        s->configured = true;
        // A configure after the first (the output changed) asks for the picture again.
        if (!first && s->picture) {
            s->owed += s->picture->band();
            s->present();
        }
    },
    [](void* data, zwlr_layer_surface_v1*) {
        // The compositor took the frame down (its output went away): it stays down until shown again.
        static_cast<Surface*>(data)->closed = true;
    },
};

const wl_buffer_listener LayerShellArmedFrame::Surface::bufferListener = {
    [](void* data, wl_buffer*) {
        auto* b = static_cast<Buffer*>(data);
        b->busy = false;
    },
};

std::unique_ptr<LayerShellArmedFrame::Connection> LayerShellArmedFrame::open()
{
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) return nullptr;
    auto c = std::make_unique<Connection>();
    c->display = wl_display_connect(nullptr);
    if (!c->display) return nullptr;
    c->registry = wl_display_get_registry(c->display);
    wl_registry_add_listener(c->registry, &Connection::registryListener, c.get());
    // The globals, then what the outputs say of themselves.
    if (wl_display_roundtrip(c->display) < 0 || wl_display_roundtrip(c->display) < 0) return nullptr;
    if (!c->layerShell || !c->compositor || !c->shm) return nullptr;
    return c;
}

bool LayerShellArmedFrame::available()
{
    return open() != nullptr;
}

std::unique_ptr<LayerShellArmedFrame> LayerShellArmedFrame::connect(std::function<bool()> sharesScreen)
{
    std::unique_ptr<Connection> c = open();
    if (!c) return nullptr;
    return std::unique_ptr<LayerShellArmedFrame>(new LayerShellArmedFrame(std::move(c), std::move(sharesScreen)));
}

LayerShellArmedFrame::LayerShellArmedFrame(std::unique_ptr<Connection> connection, std::function<bool()> screen)
    : wayland(std::move(connection))
    , sharesScreen(std::move(screen))
{
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setSingleShot(true);
    QObject::connect(&ticker, &QTimer::timeout, this, &LayerShellArmedFrame::tick);
    wayland->readable = std::make_unique<QSocketNotifier>(wl_display_get_fd(wayland->display), QSocketNotifier::Read);
    QObject::connect(wayland->readable.get(), &QSocketNotifier::activated, this, &LayerShellArmedFrame::readEvents);
}

LayerShellArmedFrame::~LayerShellArmedFrame()
{
    dismiss();
}

void LayerShellArmedFrame::readEvents()
{
    wl_display* display = wayland->display;
    // Never blocks: a roundtrip since the notifier fired may have read what was there.
    while (wl_display_prepare_read(display) != 0)
        wl_display_dispatch_pending(display);
    pollfd waiting { wl_display_get_fd(display), POLLIN, 0 };
    bool broken = false;
    if (poll(&waiting, 1, 0) > 0 && !(waiting.revents & POLLIN)) {
        wl_display_cancel_read(display);
        broken = true;
    } else if (waiting.revents & POLLIN) {
        broken = wl_display_read_events(display) < 0;
    } else {
        wl_display_cancel_read(display);
    }
    if (broken || wl_display_dispatch_pending(display) < 0) {
        // The compositor is gone: nothing more can be shown.
        logLine(QStringLiteral("Armed frame: the connection to the compositor broke"));
        wayland->readable->setEnabled(false);
        ticker.stop();
        return;
    }
    if (surface && surface->closed) {
        dismiss();
        return;
    }
    // A buffer came back: what waited for it goes up now.
    if (surface) surface->present();
    wl_display_flush(display);
}

void LayerShellArmedFrame::show(const QRectF& globalRect, AreaOverlayStyle style)
{
    dismiss();
    if (!ArmedFrameDrawing::isFramable(globalRect) || !wayland->readable->isEnabled()) return;
    if (sharesScreen && !sharesScreen()) {
        logLine(QStringLiteral("Armed frame: the desktop shares a window, which lies nowhere on the screen in "
                               "particular; no frame"));
        return;
    }
    surface = std::make_unique<Surface>(*wayland);
    if (!surface->create(globalRect, style, wayland->outputFor(globalRect))) {
        surface.reset();
        return;
    }
    clock.start();
    tick();
}

void LayerShellArmedFrame::dismiss()
{
    ticker.stop();
    surface.reset();
}

QRect LayerShellArmedFrame::placement() const
{
    return surface && !surface->closed ? surface->placement : QRect();
}

void LayerShellArmedFrame::tick()
{
    if (!surface) return;
    const double seconds = clock.nsecsElapsed() / 1e9;
    surface->advance(seconds);
    // Nothing is painted, nor is this woken, until the picture changes.
    const double next = surface->picture->nextChange(seconds, surface->interval);
    if (std::isfinite(next)) ticker.start(std::max(1, int(std::ceil((next - clock.nsecsElapsed() / 1e9) * 1000))));
}
