#pragma once

// Priorities of the calling thread, for background work that must yield to the window and to
// recording on a loaded machine.
namespace ThreadPriority {

// Lowers the calling thread's scheduling priority to that of background work. For good: an
// unprivileged thread cannot raise it back, so call it only on threads kept for such work. Threads
// the caller starts afterwards inherit it. Does nothing where the system refuses.
void lowerCurrentThreadToBackground();

} // namespace ThreadPriority
