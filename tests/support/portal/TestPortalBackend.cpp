// A desktop portal backend for tests: the real xdg-desktop-portal forwards the ScreenCast and
// GlobalShortcuts calls of the program under test here, as it would to a desktop's own backend.
//
// "Start" answers with a PipeWire node of this process whose pictures the test controls over the
// interface org.velotape.TestPortal: a counter painted as a colour (as the X11 tests paint the root
// window), filled rectangles, the answer of the "chooser", a closed session, a pressed shortcut,
// and the cursor, which goes beside the pictures as metadata when the reader asked for it.
// A picture is sent only when it changed, as a compositor sends only damage; a cursor that only
// moved goes out on a buffer without a picture, as compositors send it.
//
//   velotape-test-portal [--size WxH] [--format BGRx|BGRA|RGBx|RGBA] [--counter-ms N]
//                        [--buffers shm|dmabuf] [--cursor-modes N]
//
// The counter goes up every 100 ms unless --counter-ms says otherwise (a benchmark wants a change
// every frame).
//
// --buffers dmabuf: the node offers its format as a linear DMA-BUF first, its modifier fixed from
// the start, and hands out DMA-BUFs if the reader took that format (shared memory otherwise). A
// compositor would offer several modifiers and fix one once it knows what the reader takes; that
// second round, on this machine's PipeWire, now and then left the reader with buffers that had no
// memory in them, and the reader's side of it is the same either way. There is no GPU
// here (no /dev/dri, no /dev/udmabuf): each "DMA-BUF" is a memfd labelled SPA_DATA_DmaBuf. Mapped, a
// memfd reads like a linear DMA-BUF; the DMA-BUF sync call fails on it, as on a driver without one.
// --buffers dmabuf-unmappable: the DMA-BUFs come with no memory behind them, as from a driver whose
// buffers the processor cannot map.
//
// --cursor-modes: what the ScreenCast backend says it can do with the cursor (1 hidden, 2 embedded,
// 4 metadata; all three unless told). Embedded, the cursor is painted into the pictures.
//
// The bus name is taken once the node exists, so a harness that waits for the name can start
// xdg-desktop-portal right after.

#include <QColor>
#include <QCoreApplication>
#include <QDBusAbstractAdaptor>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QImage>
#include <QMap>
#include <QPainter>
#include <QRect>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <pipewire/pipewire.h>
#include <spa/param/video/format-utils.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

struct PortalStream {
    uint nodeId = 0;
    QVariantMap properties;
};
Q_DECLARE_METATYPE(PortalStream)

QDBusArgument& operator<<(QDBusArgument& a, const PortalStream& s)
{
    a.beginStructure();
    a << s.nodeId << s.properties;
    a.endStructure();
    return a;
}

const QDBusArgument& operator>>(const QDBusArgument& a, PortalStream& s)
{
    a.beginStructure();
    a >> s.nodeId >> s.properties;
    a.endStructure();
    return a;
}

struct RestoreData {
    QString vendor;
    uint version = 0;
    QDBusVariant data;
};
Q_DECLARE_METATYPE(RestoreData)

QDBusArgument& operator<<(QDBusArgument& a, const RestoreData& r)
{
    a.beginStructure();
    a << r.vendor << r.version << r.data;
    a.endStructure();
    return a;
}

const QDBusArgument& operator>>(const QDBusArgument& a, RestoreData& r)
{
    a.beginStructure();
    a >> r.vendor >> r.version >> r.data;
    a.endStructure();
    return a;
}

struct Shortcut {
    QString id;
    QVariantMap properties;
};
Q_DECLARE_METATYPE(Shortcut)
using Shortcuts = QList<Shortcut>;
Q_DECLARE_METATYPE(Shortcuts)

QDBusArgument& operator<<(QDBusArgument& a, const Shortcut& s)
{
    a.beginStructure();
    a << s.id << s.properties;
    a.endStructure();
    return a;
}

const QDBusArgument& operator>>(const QDBusArgument& a, Shortcut& s)
{
    a.beginStructure();
    a >> s.id >> s.properties;
    a.endStructure();
    return a;
}

namespace {

const QString restoreVendor = QStringLiteral("velotape-test");

// DRM's linear layout modifier (drm_fourcc.h).
constexpr int64_t linearModifier = 0;

// The pictures: painted on the PipeWire thread when the stream asks, from state the D-Bus side
// (main thread) changes under the thread loop's lock.
class Producer {
public:
    Producer(QSize size, spa_video_format format, int counterMs, bool dmaBuf, bool unmappable)
        : size(size)
        , format(format)
        , counterMs(counterMs)
        , offersDmaBuf(dmaBuf)
        , dmaBufUnmappable(unmappable)
    {
    }

    ~Producer() { tearDown(); }

    // Called on the PipeWire thread when the server goes away.
    std::function<void()> onLost;

    void tearDown()
    {
        if (loop) pw_thread_loop_stop(loop);
        if (registry) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
        if (stream) pw_stream_destroy(stream);
        if (core) pw_core_disconnect(core);
        if (context) pw_context_destroy(context);
        if (loop) pw_thread_loop_destroy(loop);
        registry = nullptr;
        stream = nullptr;
        core = nullptr;
        context = nullptr;
        loop = nullptr;
        timer = nullptr;
        nodeId = SPA_ID_INVALID;
        streaming = false;
    }

    // The node id once the stream is ready; 0 on failure.
    uint32_t start()
    {
        loop = pw_thread_loop_new("test-portal", nullptr);
        context = pw_context_new(pw_thread_loop_get_loop(loop), nullptr, 0);
        if (!context) return 0;
        if (pw_thread_loop_start(loop) < 0) return 0;
        pw_thread_loop_lock(loop);
        core = pw_context_connect(context, nullptr, 0);
        if (!core) {
            pw_thread_loop_unlock(loop);
            return 0;
        }
        static const pw_core_events coreEvents = [] {
            pw_core_events e {};
            e.version = PW_VERSION_CORE_EVENTS;
            e.error = [](void* self, uint32_t id, int, int result, const char*) {
                auto* producer = static_cast<Producer*>(self);
                if (id == PW_ID_CORE && result == -EPIPE && producer->onLost) producer->onLost();
            };
            return e;
        }();
        pw_core_add_listener(core, &coreListener, &coreEvents, this);
        stream = pw_stream_new(core, "velotape-test-screen",
            pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_NODE_NAME, "velotape-test-screen", nullptr));
        static const pw_stream_events events = [] {
            pw_stream_events e {};
            e.version = PW_VERSION_STREAM_EVENTS;
            e.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char*) {
                static_cast<Producer*>(self)->stateChanged(state);
            };
            e.param_changed = [](void* self, uint32_t id, const spa_pod* param) {
                static_cast<Producer*>(self)->paramChanged(id, param);
            };
            e.add_buffer = [](void* self, pw_buffer* buffer) { static_cast<Producer*>(self)->addBuffer(buffer); };
            e.remove_buffer = [](void*, pw_buffer* buffer) { removeBuffer(buffer); };
            return e;
        }();
        pw_stream_add_listener(stream, &listener, &events, this);
        // Each new consumer gets the present picture at once, as a compositor sends a new screen
        // cast its first frame: a link from our node is a new consumer.
        registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        static const pw_registry_events registryEvents = [] {
            pw_registry_events e {};
            e.version = PW_VERSION_REGISTRY_EVENTS;
            e.global = [](void* self, uint32_t, uint32_t, const char* type, uint32_t, const spa_dict* props) {
                auto* producer = static_cast<Producer*>(self);
                if (!props || std::strcmp(type, PW_TYPE_INTERFACE_Link) != 0) return;
                const char* output = spa_dict_lookup(props, PW_KEY_LINK_OUTPUT_NODE);
                if (output && uint32_t(std::atoi(output)) == producer->nodeId) producer->sentKey = -2;
            };
            return e;
        }();
        pw_registry_add_listener(registry, &registryListener, &registryEvents, this);
        uint8_t buffer[1024];
        spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
        const spa_pod* params[2];
        uint32_t count = 0;
        if (offersDmaBuf) params[count++] = formatParam(&b, true);
        params[count++] = formatParam(&b, false);
        // The DMA-BUF stand-ins are ours to make; shared memory PipeWire makes and maps.
        pw_stream_connect(stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
            pw_stream_flags(
                PW_STREAM_FLAG_DRIVER | (offersDmaBuf ? PW_STREAM_FLAG_ALLOC_BUFFERS : PW_STREAM_FLAG_MAP_BUFFERS)),
            params, count);
        timer = pw_loop_add_timer(
            pw_thread_loop_get_loop(loop), [](void* self, uint64_t) { static_cast<Producer*>(self)->tick(); }, this);
        timespec value { 0, 1 }, interval { 0, 1000000000 / 60 };
        pw_loop_update_timer(pw_thread_loop_get_loop(loop), timer, &value, &interval, false);
        // Ready once the node has an id in the graph.
        for (int waited = 0; nodeId == SPA_ID_INVALID && waited < 100; ++waited)
            pw_thread_loop_timed_wait(loop, 1);
        const uint32_t id = nodeId;
        pw_thread_loop_unlock(loop);
        return id == SPA_ID_INVALID ? 0 : id;
    }

    void startCounter()
    {
        std::lock_guard lock(*this);
        counting.start();
    }

    int counter()
    {
        std::lock_guard lock(*this);
        return counting.isValid() ? int(counting.elapsed() / counterMs) : -1;
    }

    void fill(const QRect& rect, const QColor& colour)
    {
        std::lock_guard lock(*this);
        fills.push_back({ rect, colour });
        ++fillGeneration;
    }

    // The cursor's bitmap: `colour` on its left half, transparent on its right.
    void setCursor(QPoint position, QPoint hotspot, QSize bitmapSize, const QColor& colour)
    {
        std::lock_guard lock(*this);
        cursorBitmap = QImage(bitmapSize, QImage::Format_ARGB32);
        cursorBitmap.fill(Qt::transparent);
        QPainter(&cursorBitmap).fillRect(QRect(0, 0, bitmapSize.width() / 2, bitmapSize.height()), colour);
        cursorHotspot = hotspot;
        cursorPosition = position;
        ++bitmapGeneration;
        ++cursorGeneration;
    }

    void moveCursor(QPoint position)
    {
        std::lock_guard lock(*this);
        cursorPosition = position;
        ++cursorGeneration;
    }

    // The cursor goes round an ellipse, a step each tick, as a hand on a mouse would (for benchmarks).
    void wanderCursor(bool on)
    {
        std::lock_guard lock(*this);
        wandering = on;
    }

    // Whether a new reader gets the cursor's bitmap at once, or only when it next changes.
    void resendCursorBitmap(bool on)
    {
        std::lock_guard lock(*this);
        resendBitmap = on;
    }

    void stopCounter()
    {
        std::lock_guard lock(*this);
        counting.invalidate();
    }

    QSize pictureSize() const { return size; }

    // Whether the cursor is painted into the pictures (the reader asked for it embedded).
    void embedCursor(bool on)
    {
        std::lock_guard lock(*this);
        embedded = on;
        ++cursorGeneration;
    }

    // What the last buffers handed out were: "MemFd", or "DmaBuf" and the fixed modifier.
    QString handedOut()
    {
        std::lock_guard lock(*this);
        return handedOutType;
    }

    void lock() { pw_thread_loop_lock(loop); }
    void unlock() { pw_thread_loop_unlock(loop); }

private:
    void stateChanged(pw_stream_state state)
    {
        if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING) {
            nodeId = pw_stream_get_node_id(stream);
            pw_thread_loop_signal(loop, false);
        }
        if (state == PW_STREAM_STATE_STREAMING) sentKey = -2; // a new consumer gets the present picture
        streaming = state == PW_STREAM_STATE_STREAMING;
    }

    // The format; `dmaBuf`: as a DMA-BUF in the linear layout.
    const spa_pod* formatParam(spa_pod_builder* b, bool dmaBuf)
    {
        const spa_rectangle rect = SPA_RECTANGLE(uint32_t(size.width()), uint32_t(size.height()));
        const spa_fraction rate = SPA_FRACTION(0, 1);
        const spa_fraction maxRate = SPA_FRACTION(30, 1);
        const spa_fraction minRate = SPA_FRACTION(0, 1);
        spa_pod_frame object;
        spa_pod_builder_push_object(b, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
        spa_pod_builder_add(b, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
            SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(format), SPA_FORMAT_VIDEO_size,
            SPA_POD_Rectangle(&rect), SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate),
            SPA_FORMAT_VIDEO_maxFramerate, SPA_POD_CHOICE_RANGE_Fraction(&maxRate, &minRate, &maxRate), 0);
        if (dmaBuf) {
            spa_pod_builder_prop(b, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
            spa_pod_builder_long(b, linearModifier);
        }
        return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &object));
    }

    void paramChanged(uint32_t id, const spa_pod* param)
    {
        if (!param || id != SPA_PARAM_Format) return;
        const spa_pod_prop* modifierProp = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier);
        dmaBufModifier.reset();
        if (modifierProp) {
            uint32_t count = 0, choice = 0;
            int64_t modifier = 0;
            if (spa_pod_get_long(spa_pod_get_values(&modifierProp->value, &count, &choice), &modifier) == 0)
                dmaBufModifier = modifier;
        }
        const int stride = size.width() * 4;
        uint8_t buffer[1024];
        spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
        const spa_pod* params[4];
        params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamBuffers,
            SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers, SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks,
            SPA_POD_Int(1), SPA_PARAM_BUFFERS_size, SPA_POD_Int(stride * size.height()), SPA_PARAM_BUFFERS_stride,
            SPA_POD_Int(stride), SPA_PARAM_BUFFERS_dataType,
            SPA_POD_CHOICE_FLAGS_Int(1 << (dmaBufModifier ? SPA_DATA_DmaBuf : SPA_DATA_MemFd))));
        params[1] = static_cast<const spa_pod*>(
            spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
        params[2] = static_cast<const spa_pod*>(
            spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                SPA_POD_Id(SPA_META_VideoCrop), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_region))));
        // Only a reader that asks for the cursor's metadata gets it on its buffers.
        params[3]
            = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
                SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size, SPA_POD_Int(cursorMetaSize)));
        pw_stream_update_params(stream, params, 4);
    }

    // With --buffers dmabuf the buffers are ours: a memfd each, labelled as the format says.
    void addBuffer(pw_buffer* buffer)
    {
        if (!offersDmaBuf) return;
        spa_data& d = buffer->buffer->datas[0];
        const bool dmaBuf = dmaBufModifier && (d.type & (1u << SPA_DATA_DmaBuf));
        if (dmaBuf && dmaBufUnmappable) {
            // A DMA-BUF whose memory the reader cannot reach: no file, nothing to paint into.
            d.type = SPA_DATA_DmaBuf;
            d.fd = -1;
            d.data = nullptr;
            handedOutType = QStringLiteral("DmaBuf without memory");
            return;
        }
        d.type = dmaBuf ? SPA_DATA_DmaBuf : SPA_DATA_MemFd;
        d.flags = SPA_DATA_FLAG_READWRITE;
        d.mapoffset = 0;
        d.maxsize = uint32_t(size.width() * 4 * size.height());
        d.fd = memfd_create(dmaBuf ? "velotape-test-dmabuf" : "velotape-test-shm", MFD_CLOEXEC);
        if (d.fd < 0 || ftruncate(int(d.fd), d.maxsize) < 0) {
            std::perror("velotape-test-portal: memfd");
            return;
        }
        void* mapped = mmap(nullptr, d.maxsize, PROT_READ | PROT_WRITE, MAP_SHARED, int(d.fd), 0);
        d.data = mapped == MAP_FAILED ? nullptr : mapped;
        handedOutType = dmaBuf ? QStringLiteral("DmaBuf, modifier %1").arg(*dmaBufModifier) : QStringLiteral("MemFd");
        // Buffers made anew once the modifier is fixed: a picture sent on the ones before may never
        // have reached the reader, so the present picture goes out again, as a compositor sends one
        // when a screen cast's buffers change.
        sentKey = -2;
    }

    static void removeBuffer(pw_buffer* buffer)
    {
        spa_data& d = buffer->buffer->datas[0];
        if (d.data) munmap(d.data, d.maxsize);
        if (d.fd >= 0) close(int(d.fd));
        d.data = nullptr;
        d.fd = -1;
    }

    // On the PipeWire thread, 60 times a second: a picture goes out only when it differs from the
    // last one sent.
    void tick()
    {
        if (!streaming) return;
        if (wandering) {
            const double angle = ++wanderStep * 0.05;
            cursorPosition = QPoint(size.width() / 2 + int(size.width() / 3 * std::cos(angle)),
                size.height() / 2 + int(size.height() / 3 * std::sin(angle)));
            ++cursorGeneration;
        }
        const int count = counting.isValid() ? int(counting.elapsed() / counterMs) : -1;
        const long key = long(count) * 1000 + fillGeneration;
        if (sentKey == -2 && resendBitmap) sentBitmap = -1; // a new reader gets the bitmap too
        // Embedded, a cursor that moved is a new picture.
        const bool pictureDue = key != sentKey || (embedded && cursorGeneration != sentCursor);
        if (!pictureDue && cursorGeneration == sentCursor) return;
        pw_buffer* b = pw_stream_dequeue_buffer(stream);
        if (!b) return;
        spa_buffer* buf = b->buffer;
        auto* data = static_cast<uchar*>(buf->datas[0].data);
        if (!data) {
            pw_stream_queue_buffer(stream, b);
            return;
        }
        writeCursor(buf);
        sentCursor = cursorGeneration;
        if (!pictureDue) {
            // Only the cursor moved: no picture, as a compositor sends it.
            buf->datas[0].chunk->size = 0;
            buf->datas[0].chunk->flags = SPA_CHUNK_FLAG_CORRUPTED;
            pw_stream_queue_buffer(stream, b);
            return;
        }
        buf->datas[0].chunk->flags = SPA_CHUNK_FLAG_NONE;
        const int stride = size.width() * 4;
        QImage picture(data, size.width(), size.height(), stride, QImage::Format_RGB32);
        const int n = std::max(count, 0);
        picture.fill(QColor((n % 16) * 16 + 8, ((n / 16) % 16) * 16 + 8, 0x80));
        {
            QPainter painter(&picture);
            for (const auto& [rect, colour] : fills)
                painter.fillRect(rect, colour);
            if (embedded && !cursorBitmap.isNull()) painter.drawImage(cursorPosition - cursorHotspot, cursorBitmap);
        }
        // The painter drew BGRx; the other byte orders are the same picture, swapped in place.
        if (format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA) {
            for (int y = 0; y < size.height(); ++y) {
                uchar* p = data + y * stride;
                for (int x = 0; x < size.width(); ++x, p += 4)
                    std::swap(p[0], p[2]);
            }
        }
        if (format == SPA_VIDEO_FORMAT_BGRA || format == SPA_VIDEO_FORMAT_RGBA) {
            for (int y = 0; y < size.height(); ++y) {
                uchar* p = data + y * stride;
                for (int x = 0; x < size.width(); ++x, p += 4)
                    p[3] = 0xff;
            }
        }
        if (auto* crop = static_cast<spa_meta_region*>(
                spa_buffer_find_meta_data(buf, SPA_META_VideoCrop, sizeof(spa_meta_region)))) {
            crop->region.position = SPA_POINT(0, 0);
            crop->region.size = SPA_RECTANGLE(uint32_t(size.width()), uint32_t(size.height()));
        }
        // A stride of 0 means "width times four" to a consumer; saying so here tests that it knows.
        // A DMA-BUF's chunk may say 0 bytes: its reader is to take the size from the format.
        buf->datas[0].chunk->offset = 0;
        buf->datas[0].chunk->size = buf->datas[0].type == SPA_DATA_DmaBuf ? 0 : uint32_t(stride * size.height());
        buf->datas[0].chunk->stride = 0;
        pw_stream_queue_buffer(stream, b);
        sentKey = key;
    }

    // The cursor's place on every buffer that has room for it; its bitmap only when it changed.
    void writeCursor(spa_buffer* buf)
    {
        spa_meta* meta = spa_buffer_find_meta(buf, SPA_META_Cursor);
        if (!meta || meta->size < sizeof(spa_meta_cursor)) return;
        auto* cursor = static_cast<spa_meta_cursor*>(meta->data);
        cursor->id = cursorBitmap.isNull() ? 0 : 1;
        cursor->flags = 0;
        cursor->position = SPA_POINT(cursorPosition.x(), cursorPosition.y());
        cursor->hotspot = SPA_POINT(cursorHotspot.x(), cursorHotspot.y());
        cursor->bitmap_offset = 0;
        const size_t bytes = size_t(cursorBitmap.sizeInBytes());
        if (cursorBitmap.isNull() || bitmapGeneration == sentBitmap
            || sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap) + bytes > meta->size)
            return;
        cursor->bitmap_offset = sizeof(spa_meta_cursor);
        auto* bitmap = SPA_PTROFF(cursor, cursor->bitmap_offset, spa_meta_bitmap);
        bitmap->format = SPA_VIDEO_FORMAT_BGRA;
        bitmap->size = SPA_RECTANGLE(uint32_t(cursorBitmap.width()), uint32_t(cursorBitmap.height()));
        bitmap->stride = int32_t(cursorBitmap.bytesPerLine());
        bitmap->offset = sizeof(spa_meta_bitmap);
        std::memcpy(SPA_PTROFF(bitmap, bitmap->offset, void), cursorBitmap.constBits(), bytes);
        sentBitmap = bitmapGeneration;
    }

    static constexpr int cursorMetaSize = int(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap)) + 64 * 64 * 4;

    const QSize size;
    const spa_video_format format;
    const int counterMs;
    const bool offersDmaBuf;
    const bool dmaBufUnmappable;
    std::optional<int64_t> dmaBufModifier; // the format fixed on a DMA-BUF with this modifier
    QString handedOutType;
    bool embedded = false;
    pw_thread_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_stream* stream = nullptr;
    spa_hook listener {};
    spa_hook coreListener {};
    pw_registry* registry = nullptr;
    spa_hook registryListener {};
    spa_source* timer = nullptr;
    uint32_t nodeId = SPA_ID_INVALID;
    bool streaming = false;
    QElapsedTimer counting;
    std::vector<std::pair<QRect, QColor>> fills;
    int fillGeneration = 0;
    long sentKey = -2;
    QImage cursorBitmap; // BGRA; null: no cursor over the screen
    QPoint cursorPosition, cursorHotspot;
    int bitmapGeneration = 0, sentBitmap = -1;
    int cursorGeneration = 0, sentCursor = 0;
    bool wandering = false;
    int wanderStep = 0;
    bool resendBitmap = true;
};

// One session object of the portal: the frontend calls Close on it, and it says Closed when the
// desktop ends it.
class SessionAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.impl.portal.Session")
public:
    explicit SessionAdaptor(QObject* parent)
        : QDBusAbstractAdaptor(parent)
    {
    }
public slots:
    void Close() { emit closedByApplication(); }
signals:
    void Closed();
    void closedByApplication();
};

struct Session {
    std::unique_ptr<QObject> object;
    SessionAdaptor* adaptor = nullptr;
    QString appId;
    uint persistMode = 0;
    uint cursorMode = 0;
    bool restored = false;
    bool shortcuts = false;
};

class Backend : public QObject {
    Q_OBJECT
public:
    Backend(Producer& producer)
        : producer(producer)
    {
    }

    Producer& producer;
    uint nodeId = 0;
    uint chooserShown = 0;
    uint screenCastSessions = 0; // made since the start
    uint chooserAnswer = 0; // 0 chosen, 1 cancelled
    QString monitorName = QStringLiteral("TEST-1"); // what the chooser offers and restore data names
    uint sourceType = 1; // what the user shares: 1 a monitor, 2 a window
    // What a restore naming another monitor gets: the chooser, as most desktops do, or an error.
    bool refuseUnknownRestore = false;
    uint cursorModes = 1 | 2 | 4; // what the ScreenCast backend offers
    std::map<QString, Session> sessions;
    QMap<QString, Shortcuts> boundShortcuts; // by session

    Session& openSession(const QString& path, const QString& appId)
    {
        Session& session = sessions[path];
        session.object = std::make_unique<QObject>();
        session.adaptor = new SessionAdaptor(session.object.get());
        session.appId = appId;
        QDBusConnection::sessionBus().registerObject(path, session.object.get());
        connect(session.adaptor, &SessionAdaptor::closedByApplication, this, [this, path] { dropSession(path); });
        return session;
    }

    void dropSession(const QString& path)
    {
        QDBusConnection::sessionBus().unregisterObject(path);
        sessions.erase(path);
        boundShortcuts.remove(path);
    }

    // `screenCastsOnly`: the shortcut sessions stay, as when only the screen casts' streams died.
    void closeAll(bool screenCastsOnly = false)
    {
        QStringList paths;
        for (const auto& [path, session] : sessions)
            if (!screenCastsOnly || !session.shortcuts) paths << path;
        for (const QString& path : paths) {
            emit sessions[path].adaptor->Closed();
            // The bus connection sends the signal from its own thread, naming the object by its
            // path: the object stays registered until it surely went out.
            QTimer::singleShot(1000, this, [this, path] { dropSession(path); });
        }
    }
};

class ScreenCastAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.impl.portal.ScreenCast")
    Q_PROPERTY(uint AvailableSourceTypes READ availableSourceTypes)
    Q_PROPERTY(uint AvailableCursorModes READ availableCursorModes)
    Q_PROPERTY(uint version READ version)
public:
    ScreenCastAdaptor(Backend* backend)
        : QDBusAbstractAdaptor(backend)
        , backend(backend)
    {
    }
    uint availableSourceTypes() const { return 1 | 2; } // monitor, window
    uint availableCursorModes() const { return backend->cursorModes; } // 1 hidden, 2 embedded, 4 metadata
    uint version() const { return 4; }

public slots:
    uint CreateSession(const QDBusObjectPath&, const QDBusObjectPath& session, const QString& appId, const QVariantMap&,
        QVariantMap& results)
    {
        backend->openSession(session.path(), appId);
        ++backend->screenCastSessions;
        results.insert(QStringLiteral("session_id"), session.path());
        return 0;
    }

    uint SelectSources(const QDBusObjectPath&, const QDBusObjectPath& sessionPath, const QString&,
        const QVariantMap& options, QVariantMap&)
    {
        auto it = backend->sessions.find(sessionPath.path());
        if (it == backend->sessions.end()) return 2;
        it->second.persistMode = options.value(QStringLiteral("persist_mode")).toUInt();
        it->second.cursorMode = options.value(QStringLiteral("cursor_mode")).toUInt();
        it->second.restored = false;
        if (options.contains(QStringLiteral("restore_data"))) {
            RestoreData data;
            qvariant_cast<QDBusArgument>(options.value(QStringLiteral("restore_data"))) >> data;
            it->second.restored
                = data.vendor == restoreVendor && data.data.variant().toString() == backend->monitorName;
            if (!it->second.restored && backend->refuseUnknownRestore) return 2;
        }
        return 0;
    }

    uint Start(const QDBusObjectPath&, const QDBusObjectPath& sessionPath, const QString&, const QString&,
        const QVariantMap&, QVariantMap& results)
    {
        auto it = backend->sessions.find(sessionPath.path());
        if (it == backend->sessions.end()) return 2;
        if (!it->second.restored) {
            // Here a desktop shows its chooser; the test has said beforehand what the user picks.
            ++backend->chooserShown;
            if (backend->chooserAnswer != 0) return backend->chooserAnswer;
        }
        backend->producer.embedCursor(it->second.cursorMode == 2);
        PortalStream stream;
        stream.nodeId = backend->nodeId;
        const QSize size = backend->producer.pictureSize();
        QDBusArgument position, extent;
        position.beginStructure();
        position << 0 << 0;
        position.endStructure();
        extent.beginStructure();
        extent << size.width() << size.height();
        extent.endStructure();
        // A window lies nowhere on the screen in particular: no position.
        if (backend->sourceType == 1)
            stream.properties.insert(QStringLiteral("position"), QVariant::fromValue(position));
        stream.properties.insert(QStringLiteral("size"), QVariant::fromValue(extent));
        stream.properties.insert(QStringLiteral("source_type"), backend->sourceType);
        stream.properties.insert(QStringLiteral("id"), backend->monitorName);
        results.insert(QStringLiteral("streams"), QVariant::fromValue(QList<PortalStream> { stream }));
        if (it->second.persistMode != 0) {
            results.insert(QStringLiteral("persist_mode"), it->second.persistMode);
            results.insert(QStringLiteral("restore_data"),
                QVariant::fromValue(RestoreData { restoreVendor, 1, QDBusVariant(backend->monitorName) }));
        }
        return 0;
    }

private:
    Backend* backend;
};

class GlobalShortcutsAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.impl.portal.GlobalShortcuts")
    Q_PROPERTY(uint version READ version)
public:
    GlobalShortcutsAdaptor(Backend* backend)
        : QDBusAbstractAdaptor(backend)
        , backend(backend)
    {
    }
    uint version() const { return 1; }

public slots:
    uint CreateSession(const QDBusObjectPath&, const QDBusObjectPath& session, const QString& appId, const QVariantMap&,
        QVariantMap& results)
    {
        backend->openSession(session.path(), appId).shortcuts = true;
        results.insert(QStringLiteral("session_id"), session.path());
        return 0;
    }

    uint BindShortcuts(const QDBusObjectPath&, const QDBusObjectPath& session, const Shortcuts& shortcuts,
        const QString&, const QVariantMap&, QVariantMap& results)
    {
        if (!backend->sessions.count(session.path())) return 2;
        Shortcuts bound;
        for (Shortcut s : shortcuts) {
            // The user takes the preferred trigger as it is offered.
            s.properties.insert(QStringLiteral("trigger_description"),
                s.properties.value(QStringLiteral("preferred_trigger")).toString());
            bound.append(s);
        }
        backend->boundShortcuts[session.path()] = bound;
        results.insert(QStringLiteral("shortcuts"), QVariant::fromValue(bound));
        return 0;
    }

    uint ListShortcuts(const QDBusObjectPath&, const QDBusObjectPath& session, QVariantMap& results)
    {
        results.insert(QStringLiteral("shortcuts"), QVariant::fromValue(backend->boundShortcuts.value(session.path())));
        return 0;
    }

signals:
    void Activated(const QDBusObjectPath& session, const QString& id, qulonglong timestamp, const QVariantMap& options);
    void Deactivated(
        const QDBusObjectPath& session, const QString& id, qulonglong timestamp, const QVariantMap& options);
    void ShortcutsChanged(const QDBusObjectPath& session, const Shortcuts& shortcuts);

private:
    Backend* backend;
};

// What the test drives.
class TestControlAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.velotape.TestPortal")
public:
    TestControlAdaptor(Backend* backend, GlobalShortcutsAdaptor* shortcuts)
        : QDBusAbstractAdaptor(backend)
        , backend(backend)
        , shortcuts(shortcuts)
    {
    }

public slots:
    uint ChooserShown() { return backend->chooserShown; }
    void SetChooserAnswer(uint response) { backend->chooserAnswer = response; }
    // The monitor shared so far is unplugged and `name` takes its place; `refuse`: restore data
    // naming the old one is answered with an error instead of the chooser.
    void ReplaceMonitor(const QString& name, bool refuse)
    {
        backend->monitorName = name;
        backend->refuseUnknownRestore = refuse;
    }
    // What the user shares from the next start on: a window rather than a monitor.
    void ShareWindow(bool window) { backend->sourceType = window ? 2 : 1; }
    void StartCounter() { backend->producer.startCounter(); }
    void StopCounter() { backend->producer.stopCounter(); }
    int Counter() { return backend->producer.counter(); }
    void Fill(int x, int y, int width, int height, const QString& colour)
    {
        backend->producer.fill(QRect(x, y, width, height), QColor(colour));
    }
    uint SessionCount() { return uint(backend->sessions.size()); }
    uint ScreenCastSessionsMade() { return backend->screenCastSessions; }
    // The cursor mode an open screen cast asked for (1 hidden, 2 embedded, 4 metadata; 0 none).
    uint CursorMode()
    {
        uint mode = 0;
        for (const auto& [path, session] : backend->sessions)
            if (!session.shortcuts) mode = session.cursorMode;
        return mode;
    }
    // A cursor `colour` on the left half of a `width` x `height` bitmap, its hotspot at `hotX`,
    // `hotY` in it, at `x`, `y`; then MoveCursor moves it without sending the bitmap again.
    void SetCursor(int x, int y, int hotX, int hotY, int width, int height, const QString& colour)
    {
        backend->producer.setCursor(QPoint(x, y), QPoint(hotX, hotY), QSize(width, height), QColor(colour));
    }
    void MoveCursor(int x, int y) { backend->producer.moveCursor(QPoint(x, y)); }
    void WanderCursor(bool on) { backend->producer.wanderCursor(on); }
    void ResendCursorBitmap(bool on) { backend->producer.resendCursorBitmap(on); }
    void CloseSessions() { backend->closeAll(); }
    // The kind of buffers the node handed out last: "MemFd", or "DmaBuf, modifier N".
    QString HandedOut() { return backend->producer.handedOut(); }
    QStringList BoundShortcuts()
    {
        QStringList ids;
        for (const Shortcuts& list : std::as_const(backend->boundShortcuts))
            for (const Shortcut& s : list)
                ids << s.id + QLatin1Char('=') + s.properties.value(QStringLiteral("trigger_description")).toString();
        return ids;
    }
    // Presses and lets go a bound shortcut; false if no session bound it.
    bool Trigger(const QString& id)
    {
        bool found = false;
        for (auto it = backend->boundShortcuts.cbegin(); it != backend->boundShortcuts.cend(); ++it) {
            for (const Shortcut& s : it.value()) {
                if (s.id != id) continue;
                const QDBusObjectPath session(it.key());
                emit shortcuts->Activated(session, id, 0, {});
                emit shortcuts->Deactivated(session, id, 0, {});
                found = true;
            }
        }
        return found;
    }

private:
    Backend* backend;
    GlobalShortcutsAdaptor* shortcuts;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    qDBusRegisterMetaType<PortalStream>();
    qDBusRegisterMetaType<QList<PortalStream>>();
    qDBusRegisterMetaType<RestoreData>();
    qDBusRegisterMetaType<Shortcut>();
    qDBusRegisterMetaType<Shortcuts>();

    QSize size(640, 360);
    spa_video_format format = SPA_VIDEO_FORMAT_BGRx;
    int counterMs = 100;
    bool dmaBuf = false;
    bool dmaBufUnmappable = false;
    uint cursorModes = 1 | 2 | 4;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--size")) {
            const QStringList wh = args[i + 1].split(QLatin1Char('x'));
            if (wh.size() == 2) size = QSize(wh[0].toInt(), wh[1].toInt());
        } else if (args[i] == QLatin1String("--counter-ms")) {
            counterMs = std::max(1, args[i + 1].toInt());
        } else if (args[i] == QLatin1String("--buffers")) {
            dmaBuf = args[i + 1].startsWith(QLatin1String("dmabuf"));
            dmaBufUnmappable = args[i + 1] == QLatin1String("dmabuf-unmappable");
        } else if (args[i] == QLatin1String("--cursor-modes")) {
            cursorModes = args[i + 1].toUInt();
        } else if (args[i] == QLatin1String("--format")) {
            const QString f = args[i + 1];
            format = f == QLatin1String("BGRA") ? SPA_VIDEO_FORMAT_BGRA
                : f == QLatin1String("RGBx")    ? SPA_VIDEO_FORMAT_RGBx
                : f == QLatin1String("RGBA")    ? SPA_VIDEO_FORMAT_RGBA
                                                : SPA_VIDEO_FORMAT_BGRx;
        }
    }

    pw_init(&argc, &argv);
    Producer producer(size, format, counterMs, dmaBuf, dmaBufUnmappable);
    const uint32_t node = producer.start();
    if (node == 0) {
        std::fprintf(stderr, "velotape-test-portal: no PipeWire node (is pipewire running?)\n");
        return 1;
    }
    Backend backend(producer);
    backend.nodeId = node;
    backend.cursorModes = cursorModes;
    // PipeWire went away: like a compositor, end the screen casts at once (their node is gone) and
    // offer the screen again under a new node once PipeWire is back.
    auto* waitForPipeWire = new QTimer(&backend);
    waitForPipeWire->setInterval(100);
    QObject::connect(waitForPipeWire, &QTimer::timeout, &backend, [&backend, &producer, waitForPipeWire] {
        producer.tearDown();
        if (const uint32_t id = producer.start()) {
            backend.nodeId = id;
            waitForPipeWire->stop();
        }
    });
    producer.onLost = [&backend, waitForPipeWire] {
        QMetaObject::invokeMethod(
            &backend,
            [&backend, waitForPipeWire] {
                if (waitForPipeWire->isActive()) return;
                backend.closeAll(true);
                waitForPipeWire->start();
            },
            Qt::QueuedConnection);
    };
    auto* shortcuts = new GlobalShortcutsAdaptor(&backend);
    new ScreenCastAdaptor(&backend);
    new TestControlAdaptor(&backend, shortcuts);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), &backend)
        || !bus.registerService(QStringLiteral("org.freedesktop.impl.portal.desktop.velotapetest"))) {
        std::fprintf(stderr, "velotape-test-portal: cannot take the bus name\n");
        return 1;
    }
    return app.exec();
}

#include "TestPortalBackend.moc"
