#include "platform/pulse/PulseAudioSource.h"

#include "core/MediaTime.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdlib>

namespace {

// Delivery in slices of about 20 ms: short enough for the recorder to interleave with video,
// long enough not to wake for every few samples.
constexpr int fragmentMilliseconds = 20;

// Runs `query` on the main loop and waits for its callback; the main loop must be locked.
template <typename Result> struct Query {
    pa_threaded_mainloop* mainloop;
    Result result {};
    bool done = false;
};

} // namespace

PulseAudioSource::Opened PulseAudioSource::open(Device device, const QString& name, const QString& streamName,
    std::function<void(AudioBuffer)> onBuffer, std::function<void(const QString&)> onEnded)
{
    std::unique_ptr<PulseAudioSource> source(new PulseAudioSource);
    source->deliver = std::move(onBuffer);
    source->ended = std::move(onEnded);
    if (QString error = source->start(device, name, streamName); !error.isEmpty()) {
        source->stop();
        return { nullptr, error };
    }
    return { std::move(source), {} };
}

PulseAudioSource::~PulseAudioSource()
{
    stop();
}

QString PulseAudioSource::errorText() const
{
    return QString::fromUtf8(pa_strerror(pa_context_errno(context.get())));
}

void PulseAudioSource::onContextState(pa_context*, void* self)
{
    pa_threaded_mainloop_signal(static_cast<PulseAudioSource*>(self)->mainloop.get(), 0);
}

void PulseAudioSource::onStreamState(pa_stream* stream, void* self)
{
    auto* source = static_cast<PulseAudioSource*>(self);
    const pa_stream_state_t state = pa_stream_get_state(stream);
    if (source->recording && !PA_STREAM_IS_GOOD(state)) {
        source->recording = false;
        const int code = pa_context_errno(source->context.get());
        const bool removed = state == PA_STREAM_TERMINATED || code == PA_ERR_KILLED || code == PA_ERR_NOENTITY;
        if (source->ended) source->ended(removed ? QStringLiteral("it was unplugged or removed") : source->errorText());
    }
    pa_threaded_mainloop_signal(source->mainloop.get(), 0);
}

void PulseAudioSource::onReadable(pa_stream*, size_t, void* self)
{
    static_cast<PulseAudioSource*>(self)->readAvailable();
}

QString PulseAudioSource::start(Device device, const QString& name, const QString& streamName)
{
    mainloop.reset(pa_threaded_mainloop_new());
    if (!mainloop) return QStringLiteral("cannot make the PulseAudio main loop");
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(mainloop.get());
    const QByteArray appName = QCoreApplication::applicationName().toUtf8();
    context.reset(pa_context_new(api, appName.isEmpty() ? "Velotape" : appName.constData()));
    if (!context) return QStringLiteral("cannot make a PulseAudio context");
    pa_context_set_state_callback(context.get(), &PulseAudioSource::onContextState, this);
    // Never start a daemon of our own: no sound server means no system audio, said plainly.
    if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        return QStringLiteral("cannot reach the PulseAudio server: ") + errorText();
    if (pa_threaded_mainloop_start(mainloop.get()) < 0) return QStringLiteral("cannot start the PulseAudio main loop");
    running = true;

    pa_threaded_mainloop_lock(mainloop.get());
    struct Unlock {
        pa_threaded_mainloop* m;
        ~Unlock() { pa_threaded_mainloop_unlock(m); }
    } unlock { mainloop.get() };

    for (;;) {
        const pa_context_state_t state = pa_context_get_state(context.get());
        if (state == PA_CONTEXT_READY) break;
        if (!PA_CONTEXT_IS_GOOD(state)) return QStringLiteral("cannot reach the PulseAudio server: ") + errorText();
        pa_threaded_mainloop_wait(mainloop.get());
    }

    // Which source: the default sink's monitor, the default source, or the one named.
    QByteArray sourceName = name.toUtf8();
    if (device == Device::defaultSinkMonitor) {
        Query<QByteArray> query { mainloop.get() };
        pa_operation* op = pa_context_get_sink_info_by_name(
            context.get(), "@DEFAULT_SINK@",
            [](pa_context*, const pa_sink_info* info, int eol, void* data) {
                auto* q = static_cast<Query<QByteArray>*>(data);
                if (eol == 0 && info && info->monitor_source_name) q->result = info->monitor_source_name;
                if (eol != 0) {
                    q->done = true;
                    pa_threaded_mainloop_signal(q->mainloop, 0);
                }
            },
            &query);
        if (!op) return QStringLiteral("cannot ask PulseAudio for the default output: ") + errorText();
        while (!query.done)
            pa_threaded_mainloop_wait(mainloop.get());
        pa_operation_unref(op);
        if (query.result.isEmpty()) return QStringLiteral("PulseAudio has no default output to record");
        sourceName = query.result;
    } else if (device == Device::defaultSource) {
        sourceName = "@DEFAULT_SOURCE@";
    }

    // The source's own format, so that nothing is converted on the way.
    Query<std::optional<pa_sample_spec>> spec { mainloop.get() };
    struct SourceInfo {
        Query<std::optional<pa_sample_spec>>* query;
        QByteArray name;
    } info { &spec, {} };
    pa_operation* op = pa_context_get_source_info_by_name(
        context.get(), sourceName.constData(),
        [](pa_context*, const pa_source_info* i, int eol, void* data) {
            auto* s = static_cast<SourceInfo*>(data);
            if (eol == 0 && i) {
                s->query->result = i->sample_spec;
                s->name = i->name;
            }
            if (eol != 0) {
                s->query->done = true;
                pa_threaded_mainloop_signal(s->query->mainloop, 0);
            }
        },
        &info);
    if (!op) return QStringLiteral("cannot ask PulseAudio about the source: ") + errorText();
    while (!spec.done)
        pa_threaded_mainloop_wait(mainloop.get());
    pa_operation_unref(op);
    if (!spec.result) return QStringLiteral("PulseAudio has no source %1").arg(QString::fromUtf8(sourceName));
    recordedSource = QString::fromUtf8(info.name);

    pa_sample_spec wanted = *spec.result;
    if (wanted.format == PA_SAMPLE_S16LE) {
        sampleFormat = AudioBuffer::SampleFormat::Int16;
    } else {
        wanted.format = PA_SAMPLE_FLOAT32LE;
        sampleFormat = AudioBuffer::SampleFormat::Float32;
    }
    sampleRate = int(wanted.rate);
    channels = wanted.channels;
    clock.emplace(sampleRate);

    const QByteArray streamTitle = streamName.toUtf8();
    stream.reset(pa_stream_new(context.get(), streamTitle.constData(), &wanted, nullptr));
    if (!stream) return QStringLiteral("cannot make a PulseAudio stream: ") + errorText();
    pa_stream_set_state_callback(stream.get(), &PulseAudioSource::onStreamState, this);
    pa_stream_set_read_callback(stream.get(), &PulseAudioSource::onReadable, this);
    pa_buffer_attr attr;
    attr.maxlength = uint32_t(-1);
    attr.tlength = uint32_t(-1);
    attr.prebuf = uint32_t(-1);
    attr.minreq = uint32_t(-1);
    attr.fragsize = uint32_t(pa_usec_to_bytes(fragmentMilliseconds * 1000, &wanted));
    // A source the user chose is recorded or nothing: when it goes, the stream ends rather than
    // moving on to another one.
    const auto flags = pa_stream_flags_t(
        PA_STREAM_ADJUST_LATENCY | (device == Device::named ? PA_STREAM_DONT_MOVE : PA_STREAM_NOFLAGS));
    if (pa_stream_connect_record(stream.get(), recordedSource.toUtf8().constData(), &attr, flags) < 0)
        return QStringLiteral("cannot record from PulseAudio: ") + errorText();
    for (;;) {
        const pa_stream_state_t state = pa_stream_get_state(stream.get());
        if (state == PA_STREAM_READY) break;
        if (!PA_STREAM_IS_GOOD(state)) return QStringLiteral("cannot record from PulseAudio: ") + errorText();
        pa_threaded_mainloop_wait(mainloop.get());
    }
    recording = true;
    return {};
}

void PulseAudioSource::readAvailable()
{
    const int frameBytes = channels * (sampleFormat == AudioBuffer::SampleFormat::Float32 ? 4 : 2);
    while (pa_stream_readable_size(stream.get()) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream.get(), &data, &bytes) < 0 || bytes == 0) return;
        const int64_t now = monotonicNanoseconds();
        const int frames = int(bytes / size_t(frameBytes));
        if (!data) {
            // A hole: samples that were lost. Time moves on over them.
            clock->skip(frames);
            pa_stream_drop(stream.get());
            continue;
        }
        // The newest sample that can be read is taken as recorded now, so this buffer began as
        // long before as everything readable lasts. The server's own latency figures are no help
        // here: a sink's monitor reports the sink's whole buffer (over half a second on a null
        // sink), and they are refreshed only every so often.
        const int64_t readableNs
            = int64_t(pa_stream_readable_size(stream.get()) / size_t(frameBytes)) * 1'000'000'000 / sampleRate;
        const int64_t durationNs = int64_t(frames) * 1'000'000'000 / sampleRate;
        const int64_t pts = clock->stamp(now - std::max(readableNs, durationNs), frames);

        AudioBuffer buffer;
        buffer.format = sampleFormat;
        buffer.sampleRate = sampleRate;
        buffer.channels = channels;
        buffer.data = QByteArray(static_cast<const char*>(data), qsizetype(frames) * frameBytes);
        buffer.pts = MediaTime::fromNanoseconds(pts);
        pa_stream_drop(stream.get());
        if (deliver && frames > 0) deliver(std::move(buffer));
    }
}

void PulseAudioSource::stop()
{
    if (!mainloop) return;
    if (running) {
        pa_threaded_mainloop_lock(mainloop.get());
        recording = false; // what follows is our own doing, not news
        if (stream) pa_stream_disconnect(stream.get());
        if (context) pa_context_disconnect(context.get());
        pa_threaded_mainloop_unlock(mainloop.get());
        // After this no callback runs: the handles can go.
        pa_threaded_mainloop_stop(mainloop.get());
        running = false;
    }
    stream.reset();
    context.reset();
    mainloop.reset();
}
