#include "platform/wayland/LayerShellArmedFrame.h"

#include "core/Log.h"
#include "monitor/ArmedFrameDrawing.h"
#include "monitor/ArmedFramePicture.h"
#include "platform/wayland/LayerShellConnection.h"
#include "platform/wayland/ShmBuffers.h"

#include <QImage>

#include <cmath>
#include <cstring>
#include <optional>
#include <wayland-client.h>

// The protocol names an argument `namespace`, a C++ keyword; wayland-client.h is in already.
#define namespace surfaceNamespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

// One frame on the screen: the layer surface, its two buffers, and the picture they show.
struct LayerShellArmedFrame::Surface {
    LayerShellConnection& wayland;
    wl_surface* surface = nullptr;
    zwlr_layer_surface_v1* layer = nullptr;
    ShmBuffers buffers;
    std::optional<ArmedFramePicture> picture;
    QRect placement; // on the output, in its pixels
    int scale = 1;
    double interval = 1.0 / 60; // seconds between two refreshes of the output
    bool configured = false;
    bool closed = false;
    // Changed in the picture since the last commit.
    QRegion owed;

    explicit Surface(LayerShellConnection& connection)
        : wayland(connection)
    {
    }

    ~Surface()
    {
        if (layer) zwlr_layer_surface_v1_destroy(layer);
        if (surface) wl_surface_destroy(surface);
        wayland.flush();
    }

    static const zwlr_layer_surface_v1_listener layerListener;

    // Makes the surface and its buffers; false (with the reason logged) when the compositor or the
    // memory refuse.
    bool create(const QRectF& watched, AreaOverlayStyle style, const LayerShellConnection::Output* output)
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

        if (!buffers.create(wayland.shm(), size, 2, QStringLiteral("Armed frame"))) return false;
        picture.emplace(size, watched.translated(-reach.topLeft()), style);
        for (const auto& b : buffers.all())
            b->stale = picture->band();

        surface = wl_compositor_create_surface(wayland.compositor());
        // Clicks and the pointer go to whatever lies below.
        wl_region* nothing = wl_compositor_create_region(wayland.compositor());
        wl_surface_set_input_region(surface, nothing);
        wl_region_destroy(nothing);
        wl_surface_set_buffer_scale(surface, scale);
        layer = zwlr_layer_shell_v1_get_layer_surface(wayland.layerShell(), surface, output ? output->output : nullptr,
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
        if (wl_display_roundtrip(wayland.display()) < 0 || !configured) {
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
        for (const auto& b : buffers.all())
            b->stale += changes;
        present();
    }

    // Commits a free buffer brought up to the picture; with none free, what is owed waits for the
    // next release.
    void present()
    {
        if (closed || !configured || owed.isEmpty()) return;
        ShmBuffers::Buffer* free = buffers.free();
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
        wayland.flush();
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

bool LayerShellArmedFrame::available()
{
    return LayerShellConnection::open() != nullptr;
}

std::unique_ptr<LayerShellArmedFrame> LayerShellArmedFrame::connect(std::function<bool()> sharesScreen)
{
    std::unique_ptr<LayerShellConnection> c = LayerShellConnection::open();
    if (!c) return nullptr;
    return std::unique_ptr<LayerShellArmedFrame>(new LayerShellArmedFrame(std::move(c), std::move(sharesScreen)));
}

LayerShellArmedFrame::LayerShellArmedFrame(
    std::unique_ptr<LayerShellConnection> connection, std::function<bool()> screen)
    : wayland(std::move(connection))
    , sharesScreen(std::move(screen))
{
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setSingleShot(true);
    QObject::connect(&ticker, &QTimer::timeout, this, &LayerShellArmedFrame::tick);
    // With the compositor gone nothing more can be shown.
    wayland->watch([this] { afterEvents(); }, [this] { ticker.stop(); });
}

LayerShellArmedFrame::~LayerShellArmedFrame()
{
    dismiss();
}

void LayerShellArmedFrame::afterEvents()
{
    if (surface && surface->closed) {
        dismiss();
        return;
    }
    // A buffer came back: what waited for it goes up now.
    if (surface) surface->present();
}

void LayerShellArmedFrame::show(const QRectF& globalRect, AreaOverlayStyle style)
{
    dismiss();
    if (!ArmedFrameDrawing::isFramable(globalRect) || wayland->isBroken()) return;
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
