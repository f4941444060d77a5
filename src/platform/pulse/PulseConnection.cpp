#include "platform/pulse/PulseConnection.h"

#include <QCoreApplication>

#include <algorithm>
#include <utility>

PulseConnection::PulseConnection(Callbacks c)
    : callbacks(std::move(c))
{
}

PulseConnection::~PulseConnection()
{
    if (!loop) return;
    {
        pa_threaded_mainloop_lock(loop.get());
        stopping = true; // the disconnection below is our own doing, not news
        if (retry) pa_threaded_mainloop_get_api(loop.get())->time_free(retry);
        retry = nullptr;
        if (context) pa_context_disconnect(context.get());
        pa_threaded_mainloop_unlock(loop.get());
    }
    // After this no callback runs: the handles can go.
    pa_threaded_mainloop_stop(loop.get());
    context.reset();
    loop.reset();
}

QString PulseConnection::start()
{
    loop.reset(pa_threaded_mainloop_new());
    if (!loop) return QStringLiteral("cannot make the PulseAudio main loop");
    if (pa_threaded_mainloop_start(loop.get()) < 0) {
        loop.reset();
        return QStringLiteral("cannot start the PulseAudio main loop");
    }
    pa_threaded_mainloop_lock(loop.get());
    connectNow();
    pa_threaded_mainloop_unlock(loop.get());
    return {};
}

pa_context* PulseConnection::waitUntilReady(QString* error)
{
    while (trying)
        pa_threaded_mainloop_wait(loop.get());
    if (context && pa_context_get_state(context.get()) == PA_CONTEXT_READY) return context.get();
    if (error) *error = QStringLiteral("cannot reach the PulseAudio server: ") + lastError;
    return nullptr;
}

void PulseConnection::connectNow()
{
    if (context) {
        pa_context_set_state_callback(context.get(), nullptr, nullptr);
        pa_context_disconnect(context.get());
        context.reset();
    }
    wasReady = false;
    const QByteArray appName = QCoreApplication::applicationName().toUtf8();
    context.reset(
        pa_context_new(pa_threaded_mainloop_get_api(loop.get()), appName.isEmpty() ? "Velotape" : appName.constData()));
    if (!context) {
        lastError = QStringLiteral("cannot make a PulseAudio context");
        retryLater();
        return;
    }
    pa_context_set_state_callback(context.get(), &PulseConnection::onState, this);
    // Never start a daemon of our own: no sound server means no sound, said plainly.
    if (pa_context_connect(context.get(), nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        lastError = QString::fromUtf8(pa_strerror(pa_context_errno(context.get())));
        retryLater();
        return;
    }
    trying = true;
}

void PulseConnection::retryLater()
{
    trying = false;
    pa_threaded_mainloop_signal(loop.get(), 0);
    if (stopping) return;
    pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop.get());
    timeval when {};
    pa_timeval_add(pa_gettimeofday(&when), pa_usec_t(nextRetryMs) * 1000);
    nextRetryMs = std::min(nextRetryMs * 2, longestRetryMs);
    if (retry)
        api->time_restart(retry, &when);
    else
        retry = api->time_new(api, &when, &PulseConnection::onRetry, this);
}

void PulseConnection::onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval*, void* self)
{
    auto* me = static_cast<PulseConnection*>(self);
    api->time_free(event);
    me->retry = nullptr;
    if (!me->stopping) me->connectNow();
}

void PulseConnection::onState(pa_context* c, void* self)
{
    auto* me = static_cast<PulseConnection*>(self);
    const pa_context_state_t state = pa_context_get_state(c);
    if (state == PA_CONTEXT_READY) {
        me->trying = false;
        me->wasReady = true;
        me->nextRetryMs = firstRetryMs;
        if (me->callbacks.ready) me->callbacks.ready(c);
        pa_threaded_mainloop_signal(me->loop.get(), 0);
        return;
    }
    if (PA_CONTEXT_IS_GOOD(state)) return; // still connecting
    me->lastError = QString::fromUtf8(pa_strerror(pa_context_errno(c)));
    const bool lostReady = std::exchange(me->wasReady, false);
    if (lostReady && !me->stopping && me->callbacks.lost) me->callbacks.lost(me->lastError);
    // The failed context is let go on the next try, outside its own callback.
    me->retryLater();
}
