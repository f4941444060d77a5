#pragma once

#include <QString>

#include <pulse/pulseaudio.h>

#include <functional>
#include <memory>

// A connection to the PulseAudio server that lasts: a threaded main loop of its own and a context
// that is made again whenever it fails (the server went away, or was restarted). The first try
// again comes after `firstRetryMs`, each later one after twice as long, up to `longestRetryMs`
// apart, until a context is ready again.
//
// `ready` and `lost` run on the PulseAudio thread with the main loop locked: `ready` with each new
// context once it can be used (subscriptions are made there), `lost` when a ready one fails. After
// the destructor neither runs again.
class PulseConnection {
public:
    static constexpr int firstRetryMs = 250;
    static constexpr int longestRetryMs = 2000;

    struct Callbacks {
        std::function<void(pa_context* context)> ready;
        std::function<void(const QString& reason)> lost;
    };

    explicit PulseConnection(Callbacks callbacks);
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    // Starts the main loop and the first try; the reason when the loop cannot run.
    QString start();

    pa_threaded_mainloop* mainloop() const { return loop.get(); }
    // With the main loop locked: a ready context, waiting for a try that is under way; none, with
    // the reason of the last failure, while the server cannot be reached.
    pa_context* waitUntilReady(QString* error);

private:
    struct MainloopFree {
        void operator()(pa_threaded_mainloop* m) const { pa_threaded_mainloop_free(m); }
    };
    struct ContextUnref {
        void operator()(pa_context* c) const { pa_context_unref(c); }
    };

    // On the PulseAudio thread, or with the main loop locked.
    void connectNow();
    void retryLater();
    static void onState(pa_context* context, void* self);
    static void onRetry(pa_mainloop_api* api, pa_time_event* event, const struct timeval* tv, void* self);

    Callbacks callbacks;
    std::unique_ptr<pa_threaded_mainloop, MainloopFree> loop;
    std::unique_ptr<pa_context, ContextUnref> context;
    pa_time_event* retry = nullptr;
    int nextRetryMs = firstRetryMs;
    bool trying = false; // a context is connecting
    bool wasReady = false; // the present context reached ready
    bool stopping = false;
    QString lastError;
};
