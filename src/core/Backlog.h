#pragma once

#include <atomic>

// The bound of a hand-over between threads: how many items one side has handed on and the other
// has not taken yet. The producer asks to enter before it queues an item and is refused once the
// bound is reached; the consumer leaves as it takes one. It remembers the most that ever waited,
// so that the bound can be seen to hold.
//
// Called from any thread.
class Backlog {
public:
    explicit Backlog(int limit)
        : bound(limit)
    {
    }

    // Room for one more: counted as waiting. False, and nothing counted, when full.
    bool tryEnter()
    {
        const int waitingNow = waiting.fetch_add(1) + 1;
        if (waitingNow > bound.load()) {
            waiting.fetch_sub(1);
            return false;
        }
        int seen = highest.load();
        while (waitingNow > seen && !highest.compare_exchange_weak(seen, waitingNow)) { }
        return true;
    }
    // One waiting item was taken.
    void leave() { waiting.fetch_sub(1); }

    int size() const { return waiting.load(); }
    int limit() const { return bound.load(); }
    void setLimit(int limit) { bound.store(limit); }
    // The most that ever waited at once.
    int peak() const { return highest.load(); }

private:
    std::atomic<int> bound;
    std::atomic<int> waiting { 0 };
    std::atomic<int> highest { 0 };
};
