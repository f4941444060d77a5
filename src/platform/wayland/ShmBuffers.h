#pragma once

#include <QImage>
#include <QRegion>
#include <QSize>
#include <QString>

#include <cstddef>
#include <memory>
#include <vector>

struct wl_buffer;
struct wl_shm;

// Pictures for one surface, in one shared-memory pool: premultiplied ARGB images painted where the
// compositor reads them, each busy from its commit until the compositor releases it.
class ShmBuffers {
public:
    struct Buffer {
        wl_buffer* buffer = nullptr;
        QImage pixels; // a view on the pool's memory
        bool busy = false;
        QRegion stale; // where it lags behind the picture the surface should show
    };

    ShmBuffers() = default;
    ~ShmBuffers();
    ShmBuffers(const ShmBuffers&) = delete;
    ShmBuffers& operator=(const ShmBuffers&) = delete;

    // `count` transparent buffers of `size` pixels; false (with the reason logged under `who`)
    // when the memory or the compositor refuse.
    bool create(wl_shm* shm, QSize size, int count, const QString& who);
    // A buffer the compositor is not reading, or null.
    Buffer* free();
    std::vector<std::unique_ptr<Buffer>>& all() { return buffers; }

private:
    int fd = -1;
    void* memory = nullptr;
    size_t bytes = 0;
    std::vector<std::unique_ptr<Buffer>> buffers;
};
