#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

// Runs the main loop until `condition` holds or `timeoutMs` passed; the condition's last answer.
// A timeout is only waited out when something is wrong, so the default is generous.
inline bool spinUntil(const std::function<bool()>& condition, int timeoutMs = 20000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(1);
    }
    return true;
}

// Runs the main loop for `ms` milliseconds.
inline void spinFor(int ms)
{
    spinUntil([] { return false; }, ms);
}
