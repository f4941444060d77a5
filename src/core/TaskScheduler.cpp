#include "core/TaskScheduler.h"

#include <QTimer>

QtTaskScheduler::~QtTaskScheduler()
{
    for (auto& [handle, timer] : timers)
        delete timer;
}

TaskScheduler::Handle QtTaskScheduler::schedule(std::chrono::nanoseconds delay, std::function<void()> task)
{
    const Handle handle = next++;
    auto* timer = new QTimer(context);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer, &QTimer::timeout, timer, [this, handle, timer, task = std::move(task)] {
        timers.erase(handle);
        timer->deleteLater();
        task();
    });
    timers[handle] = timer;
    timer->start(std::chrono::duration_cast<std::chrono::milliseconds>(delay));
    return handle;
}

void QtTaskScheduler::cancel(Handle handle)
{
    const auto it = timers.find(handle);
    if (it == timers.end()) return;
    delete it->second;
    timers.erase(it);
}

bool QtTaskScheduler::isPending(Handle handle) const
{
    return timers.count(handle) != 0;
}

TaskScheduler::Handle ManualTaskScheduler::schedule(std::chrono::nanoseconds delay, std::function<void()> task)
{
    const Handle handle = next++;
    entries[handle] = Entry { clock + delay, std::move(task) };
    return handle;
}

void ManualTaskScheduler::cancel(Handle handle)
{
    entries.erase(handle);
}

bool ManualTaskScheduler::isPending(Handle handle) const
{
    return entries.count(handle) != 0;
}

void ManualTaskScheduler::advance(std::chrono::nanoseconds by)
{
    const auto target = clock + by;
    for (;;) {
        // The earliest due task (ties in the order they were scheduled); tasks may schedule more.
        auto earliest = entries.end();
        for (auto it = entries.begin(); it != entries.end(); ++it)
            if (it->second.due <= target && (earliest == entries.end() || it->second.due < earliest->second.due))
                earliest = it;
        if (earliest == entries.end()) break;
        clock = earliest->second.due;
        auto task = std::move(earliest->second.task);
        entries.erase(earliest);
        task();
    }
    clock = target;
}
