#include "core/SerialQueue.h"

#include <pthread.h>

SerialQueue::SerialQueue(QString label)
    : queueLabel(std::move(label))
{
    worker = std::thread([this] { run(); });
    // Thread names are limited to 15 bytes; the tail of a dotted label is the telling part.
    QByteArray name = queueLabel.toUtf8();
    if (name.size() > 15) name = name.right(15);
    pthread_setname_np(worker.native_handle(), name.constData());
}

SerialQueue::~SerialQueue()
{
    {
        std::lock_guard lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    // A queue must not be destroyed by one of its own tasks: its thread would outlive it.
    worker.join();
}

void SerialQueue::async(std::function<void()> task)
{
    {
        std::lock_guard lock(mutex);
        tasks.push_back(std::move(task));
    }
    wake.notify_one();
}

void SerialQueue::sync(const std::function<void()>& task)
{
    if (isCurrent()) {
        task();
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneWake;
    bool done = false;
    async([&] {
        task();
        std::lock_guard lock(doneMutex);
        done = true;
        doneWake.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneWake.wait(lock, [&] { return done; });
}

bool SerialQueue::isCurrent() const
{
    return worker.get_id() == std::this_thread::get_id();
}

void SerialQueue::run()
{
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock lock(mutex);
            wake.wait(lock, [this] { return stopping || !tasks.empty(); });
            if (tasks.empty()) return; // stopping and drained
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
    }
}
