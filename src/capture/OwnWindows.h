#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

// The windows this program shows, kept up to date by its window layer. A display capture cannot
// leave them out on X11, but it need not count their own repaints as changes of the screen: the
// recorder's preview repainting itself would otherwise make a still screen change 15 times a
// second for as long as the window shows it, and every one of those pictures would be encoded.
//
// Any thread: written on the main thread, read by capture threads.
class OwnWindows {
public:
    void set(std::vector<uint32_t> ids)
    {
        std::lock_guard lock(mutex);
        windows = std::move(ids);
    }
    std::vector<uint32_t> get() const
    {
        std::lock_guard lock(mutex);
        return windows;
    }

private:
    mutable std::mutex mutex;
    std::vector<uint32_t> windows; // guarded by mutex
};
