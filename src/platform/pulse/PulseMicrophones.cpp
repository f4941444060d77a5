#include "platform/pulse/PulseMicrophones.h"

#include "core/Log.h"
#include "platform/pulse/PulseAudioSource.h"

namespace {

struct Wait {
    pa_threaded_mainloop* mainloop;
    bool done = false;
    void finish()
    {
        done = true;
        pa_threaded_mainloop_signal(mainloop, 0);
    }
};

struct SourceList : Wait {
    std::vector<MicrophoneDevice> devices;
};

struct DefaultSource : Wait {
    QString name;
};

// Holds the main loop's lock for a scope.
struct Locked {
    pa_threaded_mainloop* m;
    explicit Locked(pa_threaded_mainloop* loop)
        : m(loop)
    {
        pa_threaded_mainloop_lock(m);
    }
    ~Locked() { pa_threaded_mainloop_unlock(m); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
};

// Waits for `wait`'s callback; the main loop is locked. False when the request was not sent.
bool await(pa_operation* op, Wait& wait)
{
    if (!op) return false;
    while (!wait.done)
        pa_threaded_mainloop_wait(wait.mainloop);
    pa_operation_unref(op);
    return true;
}

class PulseMicrophoneStream : public MicrophoneStream {
public:
    explicit PulseMicrophoneStream(std::unique_ptr<PulseAudioSource> s)
        : source(std::move(s))
    {
    }

private:
    std::unique_ptr<PulseAudioSource> source;
};

} // namespace

PulseMicrophones::PulseMicrophones() = default;

PulseMicrophones::~PulseMicrophones()
{
    std::lock_guard lock(guard);
    server.reset();
}

void PulseMicrophones::onEvent(pa_context*, pa_subscription_event_type_t type, uint32_t, void* self)
{
    auto* me = static_cast<PulseMicrophones*>(self);
    const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    // A source that comes or goes, or a new default microphone.
    if (kind == PA_SUBSCRIPTION_EVENT_CHANGE
        && (type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) != PA_SUBSCRIPTION_EVENT_SERVER)
        return;
    if (me->changed) me->changed();
}

PulseConnection& PulseMicrophones::connection()
{
    if (server) return *server;
    server = std::make_unique<PulseConnection>(PulseConnection::Callbacks { .ready
        =
            [this](pa_context* context) {
                pa_context_set_subscribe_callback(context, &PulseMicrophones::onEvent, this);
                const auto mask = pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_SERVER);
                if (pa_operation* op = pa_context_subscribe(context, mask, nullptr, nullptr)) pa_operation_unref(op);
                // A server that is back may have its microphones again: as good as a plug-in.
                if (changed) changed();
            },
        .lost = {} });
    if (const QString error = server->start(); !error.isEmpty()) logLine(QStringLiteral("Microphones: ") + error);
    return *server;
}

MicrophoneBackend::Listing PulseMicrophones::listDevices()
{
    std::lock_guard lock(guard);
    Listing listing;
    PulseConnection& pulse = connection();
    if (!pulse.mainloop()) {
        listing.error = QStringLiteral("cannot start the PulseAudio main loop");
        return listing;
    }
    Locked locked(pulse.mainloop());
    pa_context* context = pulse.waitUntilReady(&listing.error);
    if (!context) return listing;
    pa_threaded_mainloop* mainloop = pulse.mainloop();
    DefaultSource fallback { { mainloop }, {} };
    const bool asked = await(pa_context_get_server_info(
                                 context,
                                 [](pa_context*, const pa_server_info* info, void* data) {
                                     auto* d = static_cast<DefaultSource*>(data);
                                     if (info && info->default_source_name)
                                         d->name = QString::fromUtf8(info->default_source_name);
                                     d->finish();
                                 },
                                 &fallback),
        fallback);
    SourceList sources { { mainloop }, {} };
    const bool listed = asked
        && await(pa_context_get_source_info_list(
                     context,
                     [](pa_context*, const pa_source_info* info, int eol, void* data) {
                         auto* list = static_cast<SourceList*>(data);
                         if (eol != 0) return list->finish();
                         // The monitor of an output is what the system plays, not a microphone.
                         if (info && info->monitor_of_sink == PA_INVALID_INDEX)
                             list->devices.push_back({ QString::fromUtf8(info->name),
                                 QString::fromUtf8(info->description ? info->description : info->name) });
                     },
                     &sources),
            sources);
    if (!listed) {
        listing.error = QStringLiteral("cannot ask PulseAudio for its microphones: ")
            + QString::fromUtf8(pa_strerror(pa_context_errno(context)));
        return listing;
    }
    listing.devices = std::move(sources.devices);
    for (const MicrophoneDevice& d : listing.devices)
        if (d.uniqueID == fallback.name) listing.defaultID = d.uniqueID;
    return listing;
}

MicrophoneBackend::Opened PulseMicrophones::open(const QString& uniqueID, BufferSink onBuffer, LostSink onLost)
{
    PulseAudioSource::Opened opened = PulseAudioSource::open(PulseAudioSource::Device::named, uniqueID,
        QStringLiteral("Microphone"), std::move(onBuffer), std::move(onLost));
    if (!opened.source) return { nullptr, opened.error };
    return { std::make_unique<PulseMicrophoneStream>(std::move(opened.source)), {} };
}

void PulseMicrophones::watchDevices(std::function<void()> callback)
{
    std::lock_guard lock(guard);
    // Only a watch starts the connection; a stopped watch leaves it as it is.
    PulseConnection* pulse = callback ? &connection() : server.get();
    if (!pulse || !pulse->mainloop()) {
        changed = std::move(callback);
        return;
    }
    Locked locked(pulse->mainloop());
    changed = std::move(callback);
}
