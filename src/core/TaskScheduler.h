#pragma once

#include <QObject>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>

// Runs a function on the main loop after a delay, and lets the caller cancel it. The controller's
// toast and auto-stop timers go through it, so tests can move time forward instead of waiting.
class TaskScheduler {
public:
    using Handle = uint64_t;
    virtual ~TaskScheduler() = default;
    virtual Handle schedule(std::chrono::nanoseconds delay, std::function<void()> task) = 0;
    // Cancelling a task that ran or was cancelled already does nothing.
    virtual void cancel(Handle handle) = 0;
    virtual bool isPending(Handle handle) const = 0;
};

// The real one: single-shot QTimers on the thread of `context`.
class QtTaskScheduler : public TaskScheduler {
public:
    explicit QtTaskScheduler(QObject* context)
        : context(context)
    {
    }
    ~QtTaskScheduler() override;
    Handle schedule(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void cancel(Handle handle) override;
    bool isPending(Handle handle) const override;

private:
    QObject* context;
    Handle next = 1;
    std::map<Handle, QObject*> timers;
};

// Time moves only when told: advance() runs every task that falls due, in order of their times.
class ManualTaskScheduler : public TaskScheduler {
public:
    Handle schedule(std::chrono::nanoseconds delay, std::function<void()> task) override;
    void cancel(Handle handle) override;
    bool isPending(Handle handle) const override;
    void advance(std::chrono::nanoseconds by);
    std::chrono::nanoseconds now() const { return clock; }

private:
    struct Entry {
        std::chrono::nanoseconds due;
        std::function<void()> task;
    };
    std::chrono::nanoseconds clock { 0 };
    Handle next = 1;
    std::map<Handle, Entry> entries;
};
