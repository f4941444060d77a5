#include "platform/wayland/PipeWireCaptureStream.h"

#include "core/Log.h"
#include "core/MediaTime.h"

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

} // namespace

struct PipeWireCaptureStream::Listeners {
    spa_hook stream {};
    spa_hook core {};
    pw_stream_events streamEvents {};
    pw_core_events coreEvents {};
};

CaptureBackend::StreamStart PipeWireCaptureStream::start(int fd, uint32_t nodeId,
    const StreamConfiguration& configuration, std::shared_ptr<const StreamOutput> output, PictureSink pictures)
{
    static std::once_flag initialised;
    std::call_once(initialised, [] { pw_init(nullptr, nullptr); });

    std::unique_ptr<PipeWireCaptureStream> self(new PipeWireCaptureStream);
    self->configuration = configuration;
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
    const spa_pod* params[3];
    // Shared memory: the pictures are read by the processor, never by a GPU here.
    params[0]
        = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers,
            SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))));
    params[1] = static_cast<const spa_pod*>(spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta,
        SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_header))));
    params[2] = static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&b, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
            SPA_POD_Id(SPA_META_VideoCrop), SPA_PARAM_META_size, SPA_POD_Int(sizeof(spa_meta_region))));
    pw_stream_update_params(stream, params, 3);
}

void PipeWireCaptureStream::process()
{
    // Only the newest picture matters; older ones still queued go straight back.
    pw_buffer* newest = nullptr;
    while (pw_buffer* next = pw_stream_dequeue_buffer(stream)) {
        if (newest) pw_stream_queue_buffer(stream, newest);
        newest = next;
    }
    if (!newest || ended || size.isEmpty()) {
        if (newest) pw_stream_queue_buffer(stream, newest);
        return;
    }
    spa_buffer* buffer = newest->buffer;
    const spa_data& data = buffer->datas[0];
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer, SPA_META_Header, sizeof(spa_meta_header)));
    const bool usable = data.data && data.chunk && data.chunk->size > 0
        && !(data.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED)
        && !(header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED));
    if (!usable) {
        pw_stream_queue_buffer(stream, newest);
        return;
    }
    const int stride = data.chunk->stride != 0 ? std::abs(data.chunk->stride) : size.width() * 4;
    QRect area(QPoint(0, 0), size);
    if (const auto* crop = static_cast<const spa_meta_region*>(
            spa_buffer_find_meta_data(buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
        crop && spa_meta_region_is_valid(crop)) {
        area &= QRect(crop->region.position.x, crop->region.position.y, int(crop->region.size.width),
            int(crop->region.size.height));
    }
    const int64_t at = monotonicNanoseconds();
    if (area.isEmpty() || int64_t(data.chunk->offset) + int64_t(stride) * size.height() > int64_t(data.maxsize)) {
        pw_stream_queue_buffer(stream, newest);
        return;
    }
    const auto* bits = static_cast<const uchar*>(data.data) + data.chunk->offset;
    const QImage view(bits, size.width(), size.height(), stride,
        swapsRedAndBlue(format) ? QImage::Format_RGBX8888 : QImage::Format_RGB32);
    // The buffer goes back to the desktop at once: the picture is ours from here.
    QImage picture = view.copy(area);
    pw_stream_queue_buffer(stream, newest);
    if (swapsRedAndBlue(format)) picture = std::move(picture).convertToFormat(QImage::Format_RGB32);

    const int64_t interval = configuration.minimumFrameInterval.isValid()
        ? int64_t(configuration.minimumFrameInterval.seconds() * 1e9)
        : 0;
    if (lastDelivered != 0 && at - lastDelivered < interval) {
        // Too soon: the newest waits for the end of the interval.
        const bool waiting = !pending.isNull();
        pending = std::move(picture);
        if (!waiting) {
            const int64_t due = lastDelivered + interval;
            timespec value { time_t(due / 1000000000), long(due % 1000000000) };
            pw_loop_update_timer(pw_thread_loop_get_loop(loop), frameTimer, &value, nullptr, true);
        }
        return;
    }
    deliver(picture, at);
}

void PipeWireCaptureStream::deliverPending()
{
    if (pending.isNull() || ended || stopped) return;
    deliver(std::exchange(pending, QImage()), monotonicNanoseconds());
}

void PipeWireCaptureStream::deliver(const QImage& picture, int64_t at)
{
    pending = QImage();
    lastDelivered = at;
    if (pictures) pictures(picture);
    // A region is a crop of the shared picture, in its own pixels.
    const QImage shown = configuration.sourceRect ? picture.copy(configuration.sourceRect->toAlignedRect()) : picture;
    QImage image = scaler.fit(shown, QSize(configuration.width, configuration.height));
    if (image.isNull()) return;
    output->didOutputFrame(VideoFrame { image, MediaTime::fromNanoseconds(at) });
}
