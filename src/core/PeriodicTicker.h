#pragma once

#include "core/Guarded.h"

#include <QString>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

// Calls a function at a fixed interval on a thread of its own, from start() until stop(), so that
// what it keeps going never waits for a busy main thread. The thread sleeps on a condition
// variable between calls; stop() wakes it at once and joins it. Destruction stops it.
//
// start and stop are called from the owner's thread; `tick` runs on the ticker's thread and must
// be safe there.
class PeriodicTicker {
public:
    explicit PeriodicTicker(QString label);
    ~PeriodicTicker();
    PeriodicTicker(const PeriodicTicker&) = delete;
    PeriodicTicker& operator=(const PeriodicTicker&) = delete;

    // Calls `tick` every `interval` (the first one interval from now). A running ticker is stopped
    // first.
    void start(std::chrono::milliseconds interval, std::function<void()> tick);
    // Returns once no call is running and none will come.
    void stop();
    bool isRunning() const { return worker.joinable(); }

private:
    struct State {
        bool stopping = false;
    };

    QString label;
    Guarded<State> state;
    std::condition_variable wake;
    std::thread worker;
};
