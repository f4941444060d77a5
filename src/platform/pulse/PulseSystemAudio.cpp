#include "platform/pulse/PulseSystemAudio.h"

#include "core/Log.h"
#include "platform/pulse/PulseAudioSource.h"
#include "platform/pulse/PulseConnection.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace {

// The default output's monitor, opened again whenever its recording ends. Buffers come from one
// source at a time: the one that ended is stopped before the next is opened.
class LastingSystemAudio : public CaptureStream {
public:
    explicit LastingSystemAudio(std::function<void(const AudioBuffer&)> onBuffer)
        : deliver(std::move(onBuffer))
    {
    }
    ~LastingSystemAudio() override { stop(); }

    QString open()
    {
        PulseAudioSource::Opened opened = openSource();
        if (!opened.source) return opened.error;
        source = std::move(opened.source);
        worker = std::thread([this] { run(); });
        pthread_setname_np(worker.native_handle(), "pulse.reopen");
        return {};
    }

    void stop() override
    {
        {
            std::lock_guard lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        if (worker.joinable()) worker.join();
        // Not under the lock: its thread may be waiting for it to report an end.
        source.reset();
    }

private:
    PulseAudioSource::Opened openSource()
    {
        return PulseAudioSource::open(
            PulseAudioSource::Device::defaultSinkMonitor, {}, QStringLiteral("System audio"),
            [this](AudioBuffer buffer) { deliver(buffer); },
            [this](const QString& reason) {
                {
                    std::lock_guard lock(mutex);
                    endReason = reason;
                    ended = true;
                }
                wake.notify_all();
            });
    }

    void run()
    {
        std::unique_lock lock(mutex);
        for (;;) {
            wake.wait(lock, [this] { return stopping || ended; });
            if (stopping) return;
            ended = false;
            logLine(QStringLiteral("System audio stopped (%1); trying again").arg(endReason));
            // Stopped here, not on its own thread, which is the one that reported the end.
            std::unique_ptr<PulseAudioSource> gone = std::move(source);
            lock.unlock();
            gone.reset();
            lock.lock();
            int delayMs = PulseConnection::firstRetryMs;
            for (;;) {
                if (wake.wait_for(lock, std::chrono::milliseconds(delayMs), [this] { return stopping; })) return;
                lock.unlock();
                PulseAudioSource::Opened opened = openSource();
                lock.lock();
                if (opened.source) {
                    logLine(QStringLiteral("System audio records again from %1").arg(opened.source->sourceName()));
                    source = std::move(opened.source);
                    break;
                }
                delayMs = std::min(delayMs * 2, PulseConnection::longestRetryMs);
            }
        }
    }

    std::function<void(const AudioBuffer&)> deliver;
    std::mutex mutex;
    std::condition_variable wake;
    std::unique_ptr<PulseAudioSource> source; // replaced by the worker, under the mutex
    bool ended = false; // guarded by mutex
    bool stopping = false; // guarded by mutex
    QString endReason; // guarded by mutex
    std::thread worker;
};

} // namespace

SystemAudioBackend::Start PulseSystemAudio::start(std::function<void(const AudioBuffer&)> onBuffer)
{
    auto stream = std::make_unique<LastingSystemAudio>(std::move(onBuffer));
    if (QString error = stream->open(); !error.isEmpty()) return { nullptr, error };
    return { std::move(stream), {} };
}
