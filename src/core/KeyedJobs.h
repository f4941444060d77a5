#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <QThreadPool>

#include <type_traits>
#include <utility>

// Background jobs named by a key, at most one per key at a time: the work runs on a low-priority
// pool of this object's own, so that it never competes with recording or the interface, and the
// result comes back on the thread this object lives on.
//
// Owner's thread only (the thread that made it). `work` runs on the pool and must touch nothing
// but what it was given; `done` runs on the owner's thread after the key has left the running set,
// and never once this object is gone. Destruction drops the jobs not yet begun and waits for those
// that run, so a member of the object whose `this` `done` captures is safe.
class KeyedJobs : public QObject {
public:
    explicit KeyedJobs(int maxThreads = 1, QObject* parent = nullptr);
    ~KeyedJobs() override;

    bool isRunning(const QString& key) const { return running.contains(key); }

    // Starts `work` for `key`, and `done(result)` once it has finished. False, and nothing
    // started, while a job for `key` runs or waits: its result serves both callers.
    template <class Work, class Done> bool start(const QString& key, Work work, Done done)
    {
        using Result = std::invoke_result_t<Work&>;
        if (running.contains(key)) return false;
        running.insert(key);
        pool.start([this, key, work = std::move(work), done = std::move(done)]() mutable {
            Result result = work();
            // Queued to this object: a job that ends while it is being destroyed delivers nothing.
            QMetaObject::invokeMethod(
                this,
                [this, key, result = std::move(result), done]() mutable {
                    running.remove(key);
                    done(std::move(result));
                },
                Qt::QueuedConnection);
        });
        return true;
    }

private:
    QSet<QString> running;
    QThreadPool pool;
};
