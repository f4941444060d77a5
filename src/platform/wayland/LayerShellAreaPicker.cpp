#include "platform/wayland/LayerShellAreaPicker.h"

#include "core/Log.h"
#include "monitor/AreaPickerDrag.h"
#include "monitor/AreaPickerGeometry.h"
#include "platform/wayland/LayerShellConnection.h"
#include "platform/wayland/ShmBuffers.h"

#include <QPainter>

#include <cmath>
#include <linux/input-event-codes.h>
#include <unistd.h>
#include <wayland-client.h>
#include <wayland-cursor.h>

// The protocol names an argument `namespace`, a C++ keyword; wayland-client.h is in already.
#define namespace surfaceNamespace
#include "wlr-layer-shell-unstable-v1-client-protocol.h"
#undef namespace

// The picture of one pick, on a layer surface over one output: painted into two buffers in turn,
// each brought up only where it lags behind, and put up at most once a refresh of the output.
struct LayerShellAreaPicker::Surface {
    LayerShellConnection& wayland;
    const QPoint origin; // the output's top-left corner in the stream's coordinates
    const int scale;
    AreaPickerDrag drag;
    wl_surface* surface = nullptr;
    zwlr_layer_surface_v1* layer = nullptr;
    wl_callback* frameDone = nullptr;
    std::unique_ptr<ShmBuffers> buffers;
    QSize points; // the surface's size as the compositor gave it
    bool configured = false;
    bool closed = false;
    // Where the picture changed since the last commit, in buffer pixels.
    QRegion owed;
    // Where the present drag paints beyond the dim, in buffer pixels.
    QRect reach;

    Surface(LayerShellConnection& connection, const LayerShellConnection::Output& output, AreaPickerDrag::Finish finish)
        : wayland(connection)
        , origin(output.position)
        , scale(output.scale)
        , drag(
              std::move(finish), [this] { changed(); }, QPointF(output.position),
              [s = output.scale](QPointF p) { return p * s; })
    {
    }

    ~Surface() { takeDown(); }

    static const zwlr_layer_surface_v1_listener layerListener;
    static const wl_callback_listener frameListener;

    // Puts the surface up over the output; false when the compositor refuses it.
    bool create(const LayerShellConnection::Output& output)
    {
        surface = wl_compositor_create_surface(wayland.compositor());
        wl_surface_set_buffer_scale(surface, scale);
        layer = zwlr_layer_shell_v1_get_layer_surface(
            wayland.layerShell(), surface, output.output, ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY, "velotape-area-picker");
        zwlr_layer_surface_v1_add_listener(layer, &layerListener, this);
        // The whole output, over panels too; the whole surface takes the pointer (the default input
        // region), and the keyboard is ours until the pick ends, for Esc.
        zwlr_layer_surface_v1_set_anchor(layer,
            ZWLR_LAYER_SURFACE_V1_ANCHOR_TOP | ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM | ZWLR_LAYER_SURFACE_V1_ANCHOR_LEFT
                | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT);
        zwlr_layer_surface_v1_set_size(layer, 0, 0);
        zwlr_layer_surface_v1_set_exclusive_zone(layer, -1);
        zwlr_layer_surface_v1_set_keyboard_interactivity(layer, ZWLR_LAYER_SURFACE_V1_KEYBOARD_INTERACTIVITY_EXCLUSIVE);
        wl_surface_commit(surface);
        // The first picture may go up only once the compositor has answered with its size.
        if (wl_display_roundtrip(wayland.display()) < 0 || !configured || closed || points.isEmpty()) {
            logLine(QStringLiteral("Area picker: the compositor did not place the picker"));
            return false;
        }
        return buffers != nullptr;
    }

    // Off the screen at once; the drag may still be finishing.
    void takeDown()
    {
        if (frameDone) wl_callback_destroy(frameDone);
        frameDone = nullptr;
        if (layer) zwlr_layer_surface_v1_destroy(layer);
        layer = nullptr;
        if (surface) wl_surface_destroy(surface);
        surface = nullptr;
        buffers.reset();
        closed = true;
        wayland.flush();
    }

    // (Re)sizes the buffers to the surface the compositor gave; the whole picture is owed.
    void resize(QSize size)
    {
        points = size;
        buffers.reset();
        if (points.isEmpty()) return;
        auto made = std::make_unique<ShmBuffers>();
        if (!made->create(wayland.shm(), points * scale, 2, QStringLiteral("Area picker"))) return;
        buffers = std::move(made);
        changedWithin(QRect(QPoint(), points * scale));
    }

    // The drag moved: what it painted before and what it paints now are owed; leaving the hint,
    // or going back to it, changes the whole picture.
    void changed()
    {
        const std::optional<QPointF> a = drag.anchor(), c = drag.current();
        QRect now;
        if (a && c) {
            const QRectF r = AreaPickerGeometry::dragReach(*a, *c, scale);
            now = QRectF(r.topLeft() * scale, r.size() * scale).toAlignedRect();
        }
        const bool wholePicture = now.isNull() != reach.isNull();
        changedWithin(wholePicture ? QRect(QPoint(), points * scale) : now.united(reach));
        reach = now;
    }

    void changedWithin(const QRect& pixels)
    {
        if (!buffers) return;
        const QRect within = pixels & QRect(QPoint(), points * scale);
        owed += within;
        for (const auto& b : buffers->all())
            b->stale += within;
        present();
    }

    // Paints a free buffer where it lags and commits it, once the compositor has shown the last
    // one; otherwise what is owed waits for the next frame or the next release.
    void present()
    {
        if (closed || !configured || !buffers || owed.isEmpty() || frameDone) return;
        ShmBuffers::Buffer* free = buffers->free();
        if (!free) return;
        free->pixels.setDevicePixelRatio(scale);
        {
            QPainter painter(&free->pixels);
            // The clip is in the painter's coordinates, the surface's points.
            QRegion clip;
            for (const QRect& r : free->stale)
                clip += QRectF(QPointF(r.topLeft()) / scale, QSizeF(r.size()) / scale).toAlignedRect();
            painter.setClipRegion(clip);
            painter.setCompositionMode(QPainter::CompositionMode_Source);
            painter.fillRect(QRect(QPoint(), points), Qt::transparent);
            painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
            AreaPickerGeometry::draw(painter, QRect(QPoint(), points), QImage(), drag.anchor(), drag.current(), scale);
        }
        free->stale = {};
        wl_surface_attach(surface, free->buffer, 0, 0);
        for (const QRect& r : owed)
            wl_surface_damage_buffer(surface, r.x(), r.y(), r.width(), r.height());
        frameDone = wl_surface_frame(surface);
        wl_callback_add_listener(frameDone, &frameListener, this);
        wl_surface_commit(surface);
        free->busy = true;
        owed = {};
        wayland.flush();
    }
};

const zwlr_layer_surface_v1_listener LayerShellAreaPicker::Surface::layerListener = {
    [](void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t width, uint32_t height) {
        auto* s = static_cast<Surface*>(data);
        zwlr_layer_surface_v1_ack_configure(layer, serial);
        s->configured = true;
        const QSize size { int(width), int(height) };
        if (size != s->points || !s->buffers) s->resize(size);
    },
    [](void* data, zwlr_layer_surface_v1*) {
        // The compositor took the picker down (its output went away): the pick is cancelled.
        auto* s = static_cast<Surface*>(data);
        s->closed = true;
        s->drag.cancel();
    },
};

const wl_callback_listener LayerShellAreaPicker::Surface::frameListener = {
    [](void* data, wl_callback* callback, uint32_t) {
        auto* s = static_cast<Surface*>(data);
        wl_callback_destroy(callback);
        s->frameDone = nullptr;
        s->present();
    },
};

// The seat's pointer and keyboard, while the picker lives; what they report goes to the present
// pick while the pointer or the keyboard is on its surface.
struct LayerShellAreaPicker::Input {
    LayerShellAreaPicker& picker;
    wl_pointer* pointer = nullptr;
    wl_keyboard* keyboard = nullptr;
    wl_surface* pointerOn = nullptr;
    QPointF at;
    // The crosshair over the picker, from the desktop's cursor theme, at the scale it was loaded
    // for; none where the theme has none.
    wl_cursor_theme* theme = nullptr;
    int themeScale = 0;
    wl_surface* cursor = nullptr;

    explicit Input(LayerShellAreaPicker& owner)
        : picker(owner)
    {
    }

    ~Input()
    {
        if (pointer) wl_pointer_release(pointer);
        if (keyboard) wl_keyboard_release(keyboard);
        if (cursor) wl_surface_destroy(cursor);
        if (theme) wl_cursor_theme_destroy(theme);
    }

    void showCrosshair(uint32_t serial, int scale)
    {
        if (themeScale != scale) {
            if (theme) wl_cursor_theme_destroy(theme);
            const int size = qEnvironmentVariableIntValue("XCURSOR_SIZE");
            const QByteArray name = qgetenv("XCURSOR_THEME");
            theme = wl_cursor_theme_load(
                name.isEmpty() ? nullptr : name.constData(), (size > 0 ? size : 24) * scale, picker.wayland->shm());
            themeScale = scale;
        }
        wl_cursor* crosshair = theme ? wl_cursor_theme_get_cursor(theme, "crosshair") : nullptr;
        if (!crosshair || crosshair->image_count == 0) return;
        wl_cursor_image* image = crosshair->images[0];
        if (!cursor) cursor = wl_compositor_create_surface(picker.wayland->compositor());
        wl_surface_set_buffer_scale(cursor, scale);
        wl_surface_attach(cursor, wl_cursor_image_get_buffer(image), 0, 0);
        wl_surface_damage_buffer(cursor, 0, 0, int32_t(image->width), int32_t(image->height));
        wl_surface_commit(cursor);
        wl_pointer_set_cursor(
            pointer, serial, cursor, int32_t(image->hotspot_x) / scale, int32_t(image->hotspot_y) / scale);
    }

    static const wl_pointer_listener pointerListener;
    static const wl_keyboard_listener keyboardListener;

    // Takes the devices the seat has now, and lets go of those it lost.
    void follow(wl_seat* seat, uint32_t capabilities)
    {
        const bool hasPointer = capabilities & WL_SEAT_CAPABILITY_POINTER;
        if (hasPointer && !pointer) {
            pointer = wl_seat_get_pointer(seat);
            wl_pointer_add_listener(pointer, &pointerListener, this);
        } else if (!hasPointer && pointer) {
            wl_pointer_release(pointer);
            pointer = nullptr;
            pointerOn = nullptr;
        }
        const bool hasKeyboard = capabilities & WL_SEAT_CAPABILITY_KEYBOARD;
        if (hasKeyboard && !keyboard) {
            keyboard = wl_seat_get_keyboard(seat);
            wl_keyboard_add_listener(keyboard, &keyboardListener, this);
        } else if (!hasKeyboard && keyboard) {
            wl_keyboard_release(keyboard);
            keyboard = nullptr;
        }
    }

    // The drag of the pick whose surface is `on`, if that pick is still running.
    AreaPickerDrag* dragOn(wl_surface* on) const
    {
        Surface* s = picker.surface.get();
        return s && !s->closed && on && s->surface == on ? &s->drag : nullptr;
    }
};

const wl_pointer_listener LayerShellAreaPicker::Input::pointerListener = {
    [](void* data, wl_pointer*, uint32_t serial, wl_surface* on, wl_fixed_t x, wl_fixed_t y) {
        auto* in = static_cast<Input*>(data);
        in->pointerOn = on;
        in->at = QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y));
        if (in->dragOn(on)) in->showCrosshair(serial, in->picker.surface->scale);
    },
    [](void* data, wl_pointer*, uint32_t, wl_surface*) { static_cast<Input*>(data)->pointerOn = nullptr; },
    [](void* data, wl_pointer*, uint32_t, wl_fixed_t x, wl_fixed_t y) {
        auto* in = static_cast<Input*>(data);
        in->at = QPointF(wl_fixed_to_double(x), wl_fixed_to_double(y));
        if (AreaPickerDrag* drag = in->dragOn(in->pointerOn)) drag->move(in->at);
    },
    [](void* data, wl_pointer*, uint32_t, uint32_t, uint32_t button, uint32_t state) {
        auto* in = static_cast<Input*>(data);
        AreaPickerDrag* drag = in->dragOn(in->pointerOn);
        if (!drag) return;
        const Qt::MouseButton which = button == BTN_LEFT ? Qt::LeftButton
            : button == BTN_RIGHT                        ? Qt::RightButton
                                                         : Qt::NoButton;
        if (state == WL_POINTER_BUTTON_STATE_PRESSED)
            drag->press(which, in->at);
        else
            drag->release(which);
    },
    [](void*, wl_pointer*, uint32_t, uint32_t, wl_fixed_t) {},
    [](void*, wl_pointer*) {},
    [](void*, wl_pointer*, uint32_t) {},
    [](void*, wl_pointer*, uint32_t, uint32_t) {},
    [](void*, wl_pointer*, uint32_t, int32_t) {},
    [](void*, wl_pointer*, uint32_t, int32_t) {},
};

const wl_keyboard_listener LayerShellAreaPicker::Input::keyboardListener = {
    // The keymap is not needed: Esc is known by its key code.
    [](void*, wl_keyboard*, uint32_t, int32_t fd, uint32_t) { close(fd); },
    [](void*, wl_keyboard*, uint32_t, wl_surface*, wl_array*) {},
    [](void*, wl_keyboard*, uint32_t, wl_surface*) {},
    [](void* data, wl_keyboard*, uint32_t, uint32_t, uint32_t key, uint32_t state) {
        auto* in = static_cast<Input*>(data);
        Surface* s = in->picker.surface.get();
        if (key == KEY_ESC && state == WL_KEYBOARD_KEY_STATE_PRESSED && s && !s->closed) s->drag.cancel();
    },
    [](void*, wl_keyboard*, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {},
    [](void*, wl_keyboard*, int32_t, int32_t) {},
};

std::unique_ptr<LayerShellAreaPicker> LayerShellAreaPicker::connect(std::function<std::optional<QRect>()> sharedScreen)
{
    std::unique_ptr<LayerShellConnection> c = LayerShellConnection::open();
    if (!c) return nullptr;
    return std::unique_ptr<LayerShellAreaPicker>(new LayerShellAreaPicker(std::move(c), std::move(sharedScreen)));
}

LayerShellAreaPicker::LayerShellAreaPicker(
    std::unique_ptr<LayerShellConnection> connection, std::function<std::optional<QRect>()> screen)
    : wayland(std::move(connection))
    , sharedScreen(std::move(screen))
    , input(std::make_unique<Input>(*this))
{
    wayland->onSeatChanged([this] {
        if (wayland->seat()) input->follow(wayland->seat(), wayland->seatCapabilities());
    });
    if (wayland->seat()) input->follow(wayland->seat(), wayland->seatCapabilities());
    wayland->watch([this] { afterEvents(); },
        [this] {
            // The compositor is gone, and the surface with it: the pick ends with none.
            if (surface) surface->drag.cancel();
        });
    wayland->flush();
}

LayerShellAreaPicker::~LayerShellAreaPicker()
{
    surface.reset();
    leaving.clear();
    input.reset();
}

void LayerShellAreaPicker::afterEvents()
{
    leaving.clear();
}

void LayerShellAreaPicker::pick(Completion completion)
{
    dismiss();
    const std::optional<QRect> screen = sharedScreen ? sharedScreen() : std::nullopt;
    if (!screen || wayland->isBroken()) {
        logLine(screen ? QStringLiteral("Area picker: the compositor is gone")
                       : QStringLiteral("Area picker: the screen stream has sent no picture yet"));
        if (completion) completion(std::nullopt);
        return;
    }
    const LayerShellConnection::Output* output = wayland->outputFor(*screen);
    if (!output) {
        logLine(QStringLiteral("Area picker: the compositor lists no output"));
        if (completion) completion(std::nullopt);
        return;
    }
    const auto finish
        = AreaPickerGeometry::firstResultWins<std::optional<QRectF>>(std::move(completion), [this] { dismiss(); });
    surface = std::make_unique<Surface>(*wayland, *output, finish);
    if (!surface->create(*output)) {
        surface->drag.cancel();
        return;
    }
    surface->present();
}

void LayerShellAreaPicker::dismiss()
{
    if (!surface) return;
    // The pick may be ending from inside one of its own events: the drag is freed once that is over.
    surface->takeDown();
    leaving.push_back(std::move(surface));
}

QRect LayerShellAreaPicker::covered() const
{
    if (!surface || surface->closed) return {};
    return QRect(surface->origin, surface->points * surface->scale);
}
