#include "platform/wayland/ShmBuffers.h"

#include "core/Log.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

namespace {

const wl_buffer_listener releaseListener = {
    [](void* data, wl_buffer*) { static_cast<ShmBuffers::Buffer*>(data)->busy = false; },
};

} // namespace

ShmBuffers::~ShmBuffers()
{
    for (const auto& b : buffers)
        if (b->buffer) wl_buffer_destroy(b->buffer);
    if (memory) munmap(memory, bytes);
    if (fd >= 0) close(fd);
}

bool ShmBuffers::create(wl_shm* shm, QSize size, int count, const QString& who)
{
    const int stride = size.width() * 4;
    const size_t one = size_t(stride) * size_t(size.height());
    bytes = one * size_t(count);
    fd = memfd_create("velotape-surface", MFD_CLOEXEC);
    void* mapped = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, off_t(bytes)) == 0)
        mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) {
        logLine(QStringLiteral("%1: no shared memory for the surface: %2")
                    .arg(who, QString::fromLocal8Bit(strerror(errno))));
        return false;
    }
    memory = mapped;
    wl_shm_pool* pool = wl_shm_create_pool(shm, fd, int32_t(bytes));
    for (int i = 0; i < count; ++i) {
        auto b = std::make_unique<Buffer>();
        b->buffer = wl_shm_pool_create_buffer(
            pool, int32_t(size_t(i) * one), size.width(), size.height(), stride, WL_SHM_FORMAT_ARGB8888);
        wl_buffer_add_listener(b->buffer, &releaseListener, b.get());
        // Little-endian ARGB8888 is Qt's premultiplied ARGB32; the pool starts transparent.
        b->pixels = QImage(static_cast<uchar*>(memory) + size_t(i) * one, size.width(), size.height(), stride,
            QImage::Format_ARGB32_Premultiplied);
        buffers.push_back(std::move(b));
    }
    wl_shm_pool_destroy(pool);
    return true;
}

ShmBuffers::Buffer* ShmBuffers::free()
{
    for (const auto& b : buffers)
        if (!b->busy) return b.get();
    return nullptr;
}
