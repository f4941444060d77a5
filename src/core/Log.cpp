#include "core/Log.h"

#include <cstdio>
#include <mutex>

void logLine(const QString& text)
{
    static std::mutex mutex;
    const QByteArray bytes = text.toUtf8();
    std::lock_guard lock(mutex);
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
    std::fputc('\n', stderr);
    std::fflush(stderr);
}
