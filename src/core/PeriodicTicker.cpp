#include "core/PeriodicTicker.h"

#include <pthread.h>

PeriodicTicker::PeriodicTicker(QString name)
    : label(std::move(name))
{
}

PeriodicTicker::~PeriodicTicker()
{
    stop();
}

void PeriodicTicker::start(std::chrono::milliseconds interval, std::function<void()> tick)
{
    stop();
    state.lock()->stopping = false;
    worker = std::thread([this, interval, tick = std::move(tick)] {
        // Ticks keep to their schedule: a slow call does not push the later ones back.
        auto next = std::chrono::steady_clock::now() + interval;
        for (;;) {
            {
                auto locked = state.lock();
                const auto until = next - std::chrono::steady_clock::now();
                if (locked.waitFor(wake, until, [](const State& s) { return s.stopping; })) return;
            }
            tick();
            next += interval;
            // After a long stall (a suspended machine) one tick catches up, not a burst of them.
            if (const auto now = std::chrono::steady_clock::now(); next < now) next = now + interval;
        }
    });
    QByteArray name = label.toUtf8();
    if (name.size() > 15) name = name.right(15);
    pthread_setname_np(worker.native_handle(), name.constData());
}

void PeriodicTicker::stop()
{
    if (!worker.joinable()) return;
    state.lock()->stopping = true;
    wake.notify_all();
    worker.join();
}
