#include "platform/ThreadPriority.h"

#include <sys/resource.h>

namespace {

constexpr int backgroundNice = 10;

} // namespace

namespace ThreadPriority {

void lowerCurrentThreadToBackground()
{
    // On Linux the nice value set through PRIO_PROCESS with id 0 is the calling thread's alone.
    setpriority(PRIO_PROCESS, 0, backgroundNice);
}

} // namespace ThreadPriority
