#include "core/KeyedJobs.h"

#include <algorithm>

KeyedJobs::KeyedJobs(int maxThreads, QObject* parent)
    : QObject(parent)
{
    pool.setMaxThreadCount(std::max(1, maxThreads));
    pool.setThreadPriority(QThread::LowPriority);
}

KeyedJobs::~KeyedJobs()
{
    pool.clear();
    pool.waitForDone();
}
