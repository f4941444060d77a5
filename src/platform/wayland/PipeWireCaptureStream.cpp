#include "platform/wayland/PipeWireCaptureStream.h"

#include "core/Log.h"
#include "core/MediaTime.h"

#include <QPainter>

#include <cerrno>
#include <cstdlib>
#include <linux/dma-buf.h>
#include <mutex>
#include <pipewire/pipewire.h>
#include <spa/debug/types.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

const spa_video_format offeredFormats[] = {
    SPA_VIDEO_FORMAT_BGRx,
    SPA_VIDEO_FORMAT_BGRA,
    SPA_VIDEO_FORMAT_RGBx,
    SPA_VIDEO_FORMAT_RGBA,
};

// BGRx and BGRA are the frame path's own byte order; the other two need their red and blue swapped.
bool swapsRedAndBlue(uint32_t format)
{
    return format == SPA_VIDEO_FORMAT_RGBx || format == SPA_VIDEO_FORMAT_RGBA;
}

// DRM's layout modifier for rows one after another (drm_fourcc.h's DRM_FORMAT_MOD_LINEAR): the only
// DMA-BUF layout a mapping shows as it is. Tiled or compressed layouts need the GPU to read them, and
// the implicit modifier (DRM_FORMAT_MOD_INVALID) leaves the layout to the driver, so neither is
// offered: the desktop can only choose what is offered.
constexpr int64_t linearModifier = 0;

// `withModifier`: the DMA-BUF variant, which the desktop must take with one of the offered
// modifiers and fixes on one itself (it allocates the buffers).
const spa_pod* formatParam(spa_pod_builder* b, spa_video_format format, bool withModifier)
{
    const spa_rectangle defaultSize = SPA_RECTANGLE(1920, 1080);
    const spa_rectangle minSize = SPA_RECTANGLE(1, 1);
    const spa_rectangle maxSize = SPA_RECTANGLE(16384, 16384);
    const spa_fraction rate = SPA_FRACTION(0, 1);
    const spa_fraction defaultMax = SPA_FRACTION(60, 1);
    const spa_fraction minMax = SPA_FRACTION(0, 1);
    const spa_fraction maxMax = SPA_FRACTION(1000, 1);
    spa_pod_frame object;
    spa_pod_builder_push_object(b, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_add(b, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(format), SPA_FORMAT_VIDEO_size,
        SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minSize, &maxSize), SPA_FORMAT_VIDEO_framerate,
        SPA_POD_Fraction(&rate), SPA_FORMAT_VIDEO_maxFramerate,
        SPA_POD_CHOICE_RANGE_Fraction(&defaultMax, &minMax, &maxMax), 0);
    if (withModifier) {
        spa_pod_builder_prop(b, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY | SPA_POD_PROP_FLAG_DONT_FIXATE);
        spa_pod_frame choice;
        spa_pod_builder_push_choice(b, &choice, SPA_CHOICE_Enum, 0);
        spa_pod_builder_long(b, linearModifier); // the default, then the alternatives
        spa_pod_builder_long(b, linearModifier);
        spa_pod_builder_pop(b, &choice);
    }
    return static_cast<const spa_pod*>(spa_pod_builder_pop(b, &object));
}

// Brackets the processor's reads of a DMA-BUF, so that the picture seen is the one the GPU
// finished. False where the file is not a DMA-BUF or the driver has nothing to do.
bool syncDmaBuf(int fd, uint64_t flags)
{
    dma_buf_sync sync {};
    sync.flags = flags | DMA_BUF_SYNC_READ;
    int result;
    do
        result = ::ioctl(fd, DMA_BUF_IOCTL_SYNC, &sync);
    while (result < 0 && (errno == EINTR || errno == EAGAIN));
    return result == 0;
}

// The stream's formats: each as a DMA-BUF first unless `sharedMemoryOnly`, then each in shared
// memory, which any desktop can send. Returns how many were put into `params`.
uint32_t offeredFormatParams(spa_pod_builder* b, const spa_pod** params, bool sharedMemoryOnly)
{
    uint32_t count = 0;
    if (!sharedMemoryOnly)
        for (const spa_video_format offered : offeredFormats)
            params[count++] = formatParam(b, offered, true);
    for (const spa_video_format offered : offeredFormats)
        params[count++] = formatParam(b, offered, false);
    return count;
}

// Room for the cursor's metadata with a bitmap of `side` x `side` pixels.
constexpr int cursorMetaSize(int side)
{
    return int(sizeof(spa_meta_cursor) + sizeof(spa_meta_bitmap)) + side * side * 4;
}

// The cursor's bitmap as metadata sends it, `available` bytes from `bitmap` on; null when it is
// empty (an invisible cursor), in a format we do not read, or larger than its room.
QImage cursorBitmap(const spa_meta_bitmap* bitmap, size_t available)
{
    if (bitmap->offset < sizeof(spa_meta_bitmap) || bitmap->size.width == 0 || bitmap->size.height == 0) return {};
    const int width = int(bitmap->size.width), height = int(bitmap->size.height);
    if (width > 1024 || height > 1024) return {};
    const int stride = bitmap->stride != 0 ? std::abs(bitmap->stride) : width * 4;
    if (stride < width * 4 || uint64_t(bitmap->offset) + uint64_t(stride) * uint64_t(height) > available) return {};
    QImage::Format format;
    switch (bitmap->format) {
    case SPA_VIDEO_FORMAT_BGRA:
        format = QImage::Format_ARGB32;
        break;
    case SPA_VIDEO_FORMAT_BGRx:
        format = QImage::Format_RGB32;
        break;
    case SPA_VIDEO_FORMAT_RGBA:
        format = QImage::Format_RGBA8888;
        break;
    case SPA_VIDEO_FORMAT_RGBx:
        format = QImage::Format_RGBX8888;
        break;
    default:
        return {};
    }
    const QImage view(SPA_PTROFF(bitmap, bitmap->offset, const uchar), width, height, stride, format);
    // A copy: the metadata goes back with its buffer.
    return view.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

} // namespace

PipeWireCaptureStream::PlaneMapping::PlaneMapping(int fd, size_t length)
    : length(length)
{
    void* mapped = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, 0);
    if (mapped != MAP_FAILED)
        base = mapped;
    else
        error = errno;
}

PipeWireCaptureStream::PlaneMapping::~PlaneMapping()
{
    if (base) ::munmap(base, length);
}

struct PipeWireCaptureStream::Listeners {
    spa_hook stream {};
    spa_hook core {};
    pw_stream_events streamEvents {};
    pw_core_events coreEvents {};
};

CaptureBackend::StreamStart PipeWireCaptureStream::start(int fd, uint32_t nodeId,
    const StreamConfiguration& configuration, std::shared_ptr<CursorMemory> cursorMemory,
    std::shared_ptr<const StreamOutput> output, PictureSink pictures)
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

    std::unique_ptr<PipeWireCaptureStream> self(new PipeWireCaptureStream);
    self->configuration = configuration;
    self->cursorMemory = std::move(cursorMemory);
    if (self->cursorMemory) static_cast<CursorShape&>(self->cursor) = *self->cursorMemory->lock();
    self->output = std::move(output);
    self->pictures = std::move(pictures);
    self->listeners = std::make_unique<Listeners>();
    self->loop = pw_thread_loop_new("velotape-screen", nullptr);
    if (!self->loop) {
        ::close(fd);
        return { nullptr, QStringLiteral("PipeWire's thread loop could not be made") };
    }
    self->context = pw_context_new(pw_thread_loop_get_loop(self->loop), nullptr, 0);
    if (!self->context || pw_thread_loop_start(self->loop) < 0) {
        ::close(fd);
        return { nullptr, QStringLiteral("PipeWire could not be set up") };
    }

    PipeWireCaptureStream* s = self.get();
    pw_thread_loop_lock(s->loop);
    s->core = pw_context_connect_fd(s->context, fd, nullptr, 0);
    if (!s->core) {
        const int error = errno;
        pw_thread_loop_unlock(s->loop);
        return { nullptr, QStringLiteral("PipeWire does not answer: ") + QString::fromLocal8Bit(strerror(error)) };
    }
    Listeners& l = *s->listeners;
    l.coreEvents.version = PW_VERSION_CORE_EVENTS;
    l.coreEvents.error = [](void* data, uint32_t id, int, int result, const char* message) {
        static_cast<PipeWireCaptureStream*>(data)->coreError(id, result, message);
    };
    pw_core_add_listener(s->core, &l.core, &l.coreEvents, s);

    s->stream = pw_stream_new(s->core, "Velotape",
        pw_properties_new(
            PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Screen", nullptr));
    l.streamEvents.version = PW_VERSION_STREAM_EVENTS;
    l.streamEvents.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char* error) {
        static_cast<PipeWireCaptureStream*>(data)->stateChanged(state, error);
    };
    l.streamEvents.param_changed = [](void* data, uint32_t id, const spa_pod* param) {
        if (id == SPA_PARAM_Format) static_cast<PipeWireCaptureStream*>(data)->formatChanged(param);
    };
    l.streamEvents.process = [](void* data) { static_cast<PipeWireCaptureStream*>(data)->process(); };
    l.streamEvents.add_buffer
        = [](void* data, pw_buffer* buffer) { static_cast<PipeWireCaptureStream*>(data)->addBuffer(buffer); };
    l.streamEvents.remove_buffer
        = [](void* data, pw_buffer* buffer) { static_cast<PipeWireCaptureStream*>(data)->removeBuffer(buffer); };
    pw_stream_add_listener(s->stream, &l.stream, &l.streamEvents, s);

    s->frameTimer = pw_loop_add_timer(
        pw_thread_loop_get_loop(s->loop),
        [](void* data, uint64_t) { static_cast<PipeWireCaptureStream*>(data)->deliverPending(); }, s);

    uint8_t buffer[4096];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[2 * std::size(offeredFormats)];
    const uint32_t count = offeredFormatParams(&b, params, false);
    const int connected = pw_stream_connect(s->stream, PW_DIRECTION_INPUT, nodeId,
        pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, count);
    pw_thread_loop_unlock(s->loop);
    if (connected < 0)
        return { nullptr,
            QStringLiteral("PipeWire refused the screen stream: ") + QString::fromLocal8Bit(strerror(-connected)) };
    return { std::move(self), {} };
}

const QString PipeWireCaptureStream::serverLostReason = QStringLiteral("PipeWire went away");

PipeWireCaptureStream::~PipeWireCaptureStream()
{
    stop();
}

void PipeWireCaptureStream::stop()
{
    if (stopped.exchange(true) || !loop) return;
    if (stream) {
        pw_thread_loop_lock(loop);
        pw_stream_disconnect(stream);
        pw_thread_loop_unlock(loop);
    }
    // From here on the thread is gone, and with it every callback.
    pw_thread_loop_stop(loop);
    if (stream) pw_stream_destroy(stream);
    if (core) pw_core_disconnect(core);
    if (context) pw_context_destroy(context);
    pw_thread_loop_destroy(loop);
    mappings.clear();
    stream = nullptr;
    core = nullptr;
    context = nullptr;
    loop = nullptr;
}

void PipeWireCaptureStream::end(const QString& reason)
{
    if (ended.exchange(true)) return;
    output->didStopWithError(reason);
}

void PipeWireCaptureStream::stateChanged(int state, const char* error)
{
    if (stopped) return;
    if (state == PW_STREAM_STATE_STREAMING) streamed = true;
    if (state == PW_STREAM_STATE_ERROR)
        end(QStringLiteral("the screen stream failed: ") + QString::fromUtf8(error ? error : "PipeWire error"));
    else if (state == PW_STREAM_STATE_UNCONNECTED && streamed)
        end(QStringLiteral("the desktop stopped sharing the screen"));
}

void PipeWireCaptureStream::coreError(uint32_t id, int result, const char* message)
{
    if (stopped || id != PW_ID_CORE) return;
    if (result == -EPIPE)
        end(serverLostReason);
    else
        logLine(QStringLiteral("PipeWire: ") + QString::fromUtf8(message ? message : "error"));
}

void PipeWireCaptureStream::formatChanged(const spa_pod* param)
{
    if (!param) return;
    uint32_t mediaType = 0, mediaSubtype = 0;
    if (spa_format_parse(param, &mediaType, &mediaSubtype) < 0 || mediaType != SPA_MEDIA_TYPE_video
        || mediaSubtype != SPA_MEDIA_SUBTYPE_raw)
        return;
    spa_video_info_raw info {};
    if (spa_format_video_raw_parse(param, &info) < 0) return;
    // With a modifier the buffers are DMA-BUFs, in a layout we offered (the linear one), whether the
    // desktop has fixed it already or is still to.
    const spa_pod_prop* modifier = spa_pod_find_prop(param, nullptr, SPA_FORMAT_VIDEO_modifier);
    if (modifier) {
        uint32_t count = 0, choice = 0;
        const spa_pod* values = spa_pod_get_values(&modifier->value, &count, &choice);
        int64_t chosen = -1;
        if (count == 0 || spa_pod_get_long(values, &chosen) < 0 || chosen != linearModifier) {
            end(QStringLiteral("the desktop sends the screen in a DMA-BUF layout that cannot be read here"));
            return;
        }
    }
    dmaBuf = modifier != nullptr;
    size = QSize(int(info.size.width), int(info.size.height));
    format = info.format;
    logLine(QStringLiteral("Screen stream: %1x%2, %3%4")
                .arg(size.width())
                .arg(size.height())
                .arg(QString::fromUtf8(spa_debug_type_find_short_name(spa_type_video_format, format)),
                    dmaBuf ? QStringLiteral(", linear DMA-BUF") : QString()));

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[4];
    // The pictures are read by the processor, never by a GPU here: a DMA-BUF is mapped like shared
    // memory. A negotiated modifier means DMA-BUFs only; without one, shared memory.
    const int dataTypes = dmaBuf ? 1 << SPA_DATA_DmaBuf : (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
    params[0] = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamBuffers,
        SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(dataTypes)));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
        SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    params[2] = static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_VideoCrop), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_region))));
    uint32_t count = 3;
    if (cursorMemory)
        params[count++] = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta,
            SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Cursor), SPA_PARAM_META_size,
            SPA_POD_CHOICE_RANGE_Int(cursorMetaSize(64), cursorMetaSize(1), cursorMetaSize(256))));
    pw_stream_update_params(stream, params, count);
}

void PipeWireCaptureStream::process()
{
    // Every queued buffer's cursor counts, in order; of the pictures only the newest matters.
    pw_buffer* newest = nullptr;
    bool cursorChanged = false;
    bool unreadable = false;
    while (pw_buffer* next = pw_stream_dequeue_buffer(stream)) {
        if (cursorMemory && readCursor(next->buffer)) cursorChanged = true;
        const spa_data& data = next->buffer->datas[0];
        const auto* header = static_cast<const spa_meta_header*>(
            spa_buffer_find_meta_data(next->buffer, SPA_META_Header, sizeof(spa_meta_header)));
        // A desktop that has only moved the cursor sends an empty chunk, or one marked corrupted. A
        // DMA-BUF's chunk may say 0 bytes whatever it holds: only the mark counts there.
        const bool hasPicture = plane(next).bits && data.chunk && (data.chunk->size > 0 || data.type == SPA_DATA_DmaBuf)
            && !(data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED)
            && !(header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED));
        if (!hasPicture) {
            // A DMA-BUF with no memory we can map behind it (a driver whose buffers map nowhere,
            // or buffers that came without their files) would never bring a picture.
            if (dmaBuf && !plane(next).bits) unreadable = true;
            pw_stream_queue_buffer(stream, next);
            continue;
        }
        if (newest) pw_stream_queue_buffer(stream, newest);
        newest = next;
    }
    if (unreadable && !newest) refuseDmaBufs();
    if (ended || size.isEmpty()) {
        if (newest) pw_stream_queue_buffer(stream, newest);
        return;
    }
    if (newest) {
        const bool taken = takePicture(newest);
        // The buffer goes back to the desktop at once: the picture is ours from here.
        pw_stream_queue_buffer(stream, newest);
        if (taken) {
            pictureChanged = true;
            owed = true;
            if (pictures) pictures(clean);
        }
    }
    if (cursorChanged && configuration.showsCursor) owed = true;
    if (!owed || clean.isNull()) return;

    const int64_t at = monotonicNanoseconds();
    const int64_t interval = configuration.minimumFrameInterval.isValid()
        ? int64_t(configuration.minimumFrameInterval.seconds() * 1e9)
        : 0;
    if (lastDelivered != 0 && at - lastDelivered < interval) {
        // Too soon: what is newest then goes at the end of the interval.
        if (!timerArmed) {
            const int64_t due = lastDelivered + interval;
            timespec value { time_t(due / 1000000000), long(due % 1000000000) };
            pw_loop_update_timer(pw_thread_loop_get_loop(loop), frameTimer, &value, nullptr, true);
            timerArmed = true;
        }
        return;
    }
    deliver(at);
}

bool PipeWireCaptureStream::readCursor(const spa_buffer* buffer)
{
    const spa_meta* meta = spa_buffer_find_meta(buffer, SPA_META_Cursor);
    if (!meta || !meta->data || meta->size < sizeof(spa_meta_cursor)) return false;
    const auto* found = static_cast<const spa_meta_cursor*>(meta->data);
    if (!spa_meta_cursor_is_valid(found)) {
        // No cursor over what is shared (it left the monitor or the window).
        return std::exchange(cursor.visible, false);
    }
    bool changed = !std::exchange(cursor.visible, true);
    const QPoint position(found->position.x, found->position.y);
    changed = changed || position != cursor.position;
    cursor.position = position;
    // Without a bitmap of its own the buffer keeps the last one.
    if (found->bitmap_offset >= sizeof(spa_meta_cursor)
        && size_t(found->bitmap_offset) + sizeof(spa_meta_bitmap) <= meta->size) {
        const auto* bitmap = SPA_PTROFF(found, found->bitmap_offset, const spa_meta_bitmap);
        if (bitmap->format != 0) {
            cursor.bitmap = cursorBitmap(bitmap, meta->size - found->bitmap_offset);
            cursor.hotspot = QPoint(found->hotspot.x, found->hotspot.y);
            *cursorMemory->lock() = cursor;
            changed = true;
        }
    }
    return changed;
}

void PipeWireCaptureStream::refuseDmaBufs()
{
    if (dmaBufsRefused) return;
    dmaBufsRefused = true;
    logLine(QStringLiteral("The screen's DMA-BUFs cannot be read here: asking the desktop for shared memory"));
    uint8_t buffer[4096];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[std::size(offeredFormats)];
    const uint32_t count = offeredFormatParams(&b, params, true);
    pw_stream_update_params(stream, params, count);
}

void PipeWireCaptureStream::addBuffer(pw_buffer* buffer)
{
    // PipeWire maps shared memory itself; a DMA-BUF we map ourselves, at the length of the file.
    const spa_data& data = buffer->buffer->datas[0];
    if (data.type != SPA_DATA_DmaBuf || data.fd < 0) return;
    // A DMA-BUF's sizes in the buffer may be 0: the file itself knows its length.
    const off_t end = ::lseek(int(data.fd), 0, SEEK_END);
    const size_t length = end > 0 ? size_t(end) : size_t(data.mapoffset) + data.maxsize;
    if (length == 0) return;
    const auto at = mappings.try_emplace(buffer, int(data.fd), length).first;
    if (!at->second.base) {
        logLine(
            QStringLiteral("A screen DMA-BUF cannot be mapped: ") + QString::fromLocal8Bit(strerror(at->second.error)));
        mappings.erase(at);
    }
}

void PipeWireCaptureStream::removeBuffer(pw_buffer* buffer)
{
    mappings.erase(buffer);
}

PipeWireCaptureStream::Plane PipeWireCaptureStream::plane(const pw_buffer* buffer) const
{
    const spa_data& data = buffer->buffer->datas[0];
    if (data.type != SPA_DATA_DmaBuf) return { static_cast<const uchar*>(data.data), data.data ? data.maxsize : 0 };
    const auto found = mappings.find(buffer);
    if (found == mappings.end() || !found->second.base || data.mapoffset >= found->second.length) return {};
    return { static_cast<const uchar*>(found->second.base) + data.mapoffset, found->second.length - data.mapoffset };
}

bool PipeWireCaptureStream::takePicture(const pw_buffer* buffer)
{
    const spa_data& data = buffer->buffer->datas[0];
    const Plane pixels = plane(buffer);
    const int stride = data.chunk->stride != 0 ? std::abs(data.chunk->stride) : size.width() * 4;
    QRect area(QPoint(0, 0), size);
    if (const auto* crop = static_cast<const spa_meta_region*>(
            spa_buffer_find_meta_data(buffer->buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        crop && spa_meta_region_is_valid(crop)) {
        area &= QRect(crop->region.position.x, crop->region.position.y, int(crop->region.size.width),
            int(crop->region.size.height));
    }
    if (!pixels.bits || area.isEmpty() || stride < size.width() * 4
        || uint64_t(data.chunk->offset) + uint64_t(stride) * uint64_t(size.height()) > pixels.length)
        return false;
    // A DMA-BUF is read between the sync calls. Where they fail (a driver without them, or memory
    // that is not a DMA-BUF after all) the picture is read all the same: a torn picture is better
    // than none.
    const bool synced = data.type == SPA_DATA_DmaBuf && syncDmaBuf(int(data.fd), DMA_BUF_SYNC_START);
    if (data.type == SPA_DATA_DmaBuf && !synced && !std::exchange(syncRefused, true))
        logLine(QStringLiteral("The screen's DMA-BUF refuses the sync call (%1): reading it as it is")
                    .arg(QString::fromLocal8Bit(strerror(errno))));
    const QImage view(pixels.bits + data.chunk->offset, size.width(), size.height(), stride,
        swapsRedAndBlue(format) ? QImage::Format_RGBX8888 : QImage::Format_RGB32);
    clean = view.copy(area);
    if (synced) syncDmaBuf(int(data.fd), DMA_BUF_SYNC_END);
    if (swapsRedAndBlue(format)) clean = std::move(clean).convertToFormat(QImage::Format_RGB32);
    return true;
}

void PipeWireCaptureStream::deliverPending()
{
    timerArmed = false;
    if (!owed || ended || stopped) return;
    deliver(monotonicNanoseconds());
}

void PipeWireCaptureStream::deliver(int64_t at)
{
    owed = false;
    // A region is a crop of the shared picture, in its own pixels; so is the cursor's place.
    const QRect region = configuration.sourceRect ? configuration.sourceRect->toAlignedRect() : clean.rect();
    QImage shown = configuration.sourceRect ? clean.copy(region) : clean;
    QRect cursorRect;
    if (configuration.showsCursor && cursor.visible && !cursor.bitmap.isNull()) {
        const QRect placed(cursor.position - cursor.hotspot - region.topLeft(), cursor.bitmap.size());
        cursorRect = placed & shown.rect();
        if (!cursorRect.isEmpty()) {
            // On a copy: the clean picture is still shared with the grabs.
            QPainter painter(&shown);
            painter.drawImage(placed.topLeft(), cursor.bitmap);
        }
    }
    // The cursor moved where the region does not show it, and nothing else changed.
    if (!pictureChanged && cursorRect.isEmpty() && deliveredCursor.isEmpty()) return;
    const QImage image = scaler.fit(shown, QSize(configuration.width, configuration.height));
    if (image.isNull()) return;
    lastDelivered = at;
    FrameChanges changes;
    changes.sequence = ++framesDelivered;
    // Only the cursor moved: where it was and where it is. Scaled, a change spreads over its
    // neighbours, and a new picture may differ anywhere.
    changes.known = !pictureChanged && framesDelivered > 1 && image.size() == shown.size();
    if (changes.known) {
        for (const QRect& rect : { deliveredCursor, cursorRect })
            if (!rect.isEmpty()) changes.rects.push_back(rect);
    }
    deliveredCursor = cursorRect;
    pictureChanged = false;
    output->didOutputFrame(VideoFrame { image, MediaTime::fromNanoseconds(at), std::move(changes) });
}
