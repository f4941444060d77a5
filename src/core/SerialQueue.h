#pragma once

#include <QPointer>
#include <QString>

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

// A labelled serial work queue: one worker thread runs tasks one at a time, in the order they were
// placed. Called from any thread.
//
// Destruction drains: the task that is running and every task already queued (including tasks
// those tasks queue) still run, then the worker thread is joined. Work is therefore never dropped by
// destroying the queue; work that must not outlive its owner uses the weak-owner forms below,
// which do nothing once the owner is gone.
class SerialQueue {
public:
    explicit SerialQueue(QString label);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const QString& label() const { return queueLabel; }

    void async(std::function<void()> task);

    // Runs `task` with the owner if the owner still exists when the task's turn comes.
    template <typename Owner> void async(std::weak_ptr<Owner> owner, std::function<void(Owner&)> task)
    {
        async([owner = std::move(owner), task = std::move(task)] {
            if (auto strong = owner.lock()) task(*strong);
        });
    }
    template <typename Owner> void async(QPointer<Owner> owner, std::function<void(Owner&)> task)
    {
        async([owner, task = std::move(task)] {
            if (Owner* o = owner.data()) task(*o);
        });
    }

    // Blocks until `task` has run on the worker. From the worker thread itself it runs inline,
    // so a nested sync cannot deadlock.
    void sync(const std::function<void()>& task);

    // True on the worker thread of this queue.
    bool isCurrent() const;

private:
    void run();

    QString queueLabel;
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks; // guarded by mutex
    bool stopping = false; // guarded by mutex
    std::thread worker;
};
