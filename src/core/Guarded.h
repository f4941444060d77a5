#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

// A value shared between threads that can only be reached through its lock: lock() hands out a
// Locked that holds the mutex for as long as it lives, and the value has no other way in. Waits on a
// condition variable go through the Locked too, so that a predicate is only ever evaluated with the
// lock held.
//
// Called from any thread. A Locked must not outlive its Guarded, and one thread must not hold two
// Locked of the same Guarded (the mutex is not recursive).
template <typename T> class Guarded {
public:
    class Locked {
    public:
        T* operator->() { return value; }
        const T* operator->() const { return value; }
        T& operator*() { return *value; }
        const T& operator*() const { return *value; }

        // Releases the lock until `condition` is notified and `ready(value)` holds.
        template <typename Ready> void wait(std::condition_variable& condition, Ready ready)
        {
            condition.wait(lock, [&] { return ready(*value); });
        }
        // As wait, for at most `timeout`; what `ready` says at the end.
        template <typename Rep, typename Period, typename Ready>
        bool waitFor(std::condition_variable& condition, std::chrono::duration<Rep, Period> timeout, Ready ready)
        {
            return condition.wait_for(lock, timeout, [&] { return ready(*value); });
        }

    private:
        friend class Guarded;
        Locked(std::mutex& mutex, T* value)
            : lock(mutex)
            , value(value)
        {
        }
        std::unique_lock<std::mutex> lock;
        T* value;
    };

    Guarded() = default;
    template <typename... Args>
    explicit Guarded(std::in_place_t, Args&&... args)
        : value(std::forward<Args>(args)...)
    {
    }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    Locked lock() { return Locked(mutex, &value); }
    // Runs `use` with the value under the lock and returns what it returns.
    template <typename Use> decltype(auto) with(Use&& use) { return std::forward<Use>(use)(*lock()); }

private:
    std::mutex mutex;
    T value {};
};
