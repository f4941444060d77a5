#include "platform/wayland/PipeWireCaptureStream.h"

#include "core/Log.h"
#include "core/MediaTime.h"

#include <QPainter>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <pipewire/pipewire.h>
#include <spa/debug/types.h>
#include <spa/param/video/format-utils.h>
#include <spa/param/video/type-info.h>
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

const spa_pod* formatParam(spa_pod_builder* b, spa_video_format format)
{
    const spa_rectangle defaultSize = SPA_RECTANGLE(1920, 1080);
    const spa_rectangle minSize = SPA_RECTANGLE(1, 1);
    const spa_rectangle maxSize = SPA_RECTANGLE(16384, 16384);
    const spa_fraction rate = SPA_FRACTION(0, 1);
    const spa_fraction defaultMax = SPA_FRACTION(60, 1);
    const spa_fraction minMax = SPA_FRACTION(0, 1);
    const spa_fraction maxMax = SPA_FRACTION(1000, 1);
    return static_cast<const spa_pod*>(spa_pod_builder_add_object(b, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat,
        SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
        SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(format), SPA_FORMAT_VIDEO_size,
        SPA_POD_CHOICE_RANGE_Rectangle(&defaultSize, &minSize, &maxSize), SPA_FORMAT_VIDEO_framerate,
        SPA_POD_Fraction(&rate), SPA_FORMAT_VIDEO_maxFramerate,
        SPA_POD_CHOICE_RANGE_Fraction(&defaultMax, &minMax, &maxMax)));
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
    pw_stream_add_listener(s->stream, &l.stream, &l.streamEvents, s);

    s->frameTimer = pw_loop_add_timer(
        pw_thread_loop_get_loop(s->loop),
        [](void* data, uint64_t) { static_cast<PipeWireCaptureStream*>(data)->deliverPending(); }, s);

    uint8_t buffer[2048];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[std::size(offeredFormats)];
    for (size_t i = 0; i < std::size(offeredFormats); ++i)
        params[i] = formatParam(&b, offeredFormats[i]);
    const int connected = pw_stream_connect(s->stream, PW_DIRECTION_INPUT, nodeId,
        pw_stream_flags(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS), params, std::size(offeredFormats));
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
    size = QSize(int(info.size.width), int(info.size.height));
    format = info.format;
    logLine(QStringLiteral("Screen stream: %1x%2, %3")
                .arg(size.width())
                .arg(size.height())
                .arg(QString::fromUtf8(spa_debug_type_find_short_name(spa_type_video_format, format))));

    uint8_t buffer[1024];
    spa_pod_builder b = SPA_POD_BUILDER_INIT(buffer, sizeof(buffer));
    const spa_pod* params[4];
    // Shared memory: the pictures are read by the processor, never by a GPU here.
    params[0]
        = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
            SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))));
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
    while (pw_buffer* next = pw_stream_dequeue_buffer(stream)) {
        if (cursorMemory && readCursor(next->buffer)) cursorChanged = true;
        const spa_data& data = next->buffer->datas[0];
        const auto* header = static_cast<const spa_meta_header*>(
            spa_buffer_find_meta_data(next->buffer, SPA_META_Header, sizeof(spa_meta_header)));
        // A desktop that has only moved the cursor sends an empty chunk, or one marked corrupted.
        const bool hasPicture = data.data && data.chunk && data.chunk->size > 0
            && !(data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED)
            && !(header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED));
        if (!hasPicture) {
            pw_stream_queue_buffer(stream, next);
            continue;
        }
        if (newest) pw_stream_queue_buffer(stream, newest);
        newest = next;
    }
    if (ended || size.isEmpty()) {
        if (newest) pw_stream_queue_buffer(stream, newest);
        return;
    }
    if (newest) {
        const bool taken = takePicture(newest->buffer);
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

bool PipeWireCaptureStream::takePicture(const spa_buffer* buffer)
{
    const spa_data& data = buffer->datas[0];
    const int stride = data.chunk->stride != 0 ? std::abs(data.chunk->stride) : size.width() * 4;
    QRect area(QPoint(0, 0), size);
    if (const auto* crop = static_cast<const spa_meta_region*>(
            spa_buffer_find_meta_data(buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        crop && spa_meta_region_is_valid(crop)) {
        area &= QRect(crop->region.position.x, crop->region.position.y, int(crop->region.size.width),
            int(crop->region.size.height));
    }
    if (area.isEmpty() || int64_t(data.chunk->offset) + int64_t(stride) * size.height() > int64_t(data.maxsize))
        return false;
    const auto* bits = static_cast<const uchar*>(data.data) + data.chunk->offset;
    const QImage view(bits, size.width(), size.height(), stride,
        swapsRedAndBlue(format) ? QImage::Format_RGBX8888 : QImage::Format_RGB32);
    clean = view.copy(area);
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
