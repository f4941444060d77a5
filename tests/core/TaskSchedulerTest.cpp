#include "core/TaskScheduler.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(TaskScheduler, ManualTimeRunsDueTasksInOrderAndHonoursCancel)
{
    ManualTaskScheduler scheduler;
    std::vector<int> ran;
    scheduler.schedule(90s, [&] { ran.push_back(90); });
    const auto cancelled = scheduler.schedule(30s, [&] { ran.push_back(30); });
    scheduler.schedule(10s, [&] {
        ran.push_back(10);
        // A task that schedules another inside the same advance still runs it when it falls due.
        scheduler.schedule(5s, [&] { ran.push_back(15); });
    });
    scheduler.cancel(cancelled);
    EXPECT_FALSE(scheduler.isPending(cancelled));
    scheduler.advance(89s);
    EXPECT_EQ(ran, (std::vector<int> { 10, 15 }));
    scheduler.advance(1s);
    EXPECT_EQ(ran, (std::vector<int> { 10, 15, 90 }));
    EXPECT_EQ(scheduler.now(), 90s);
}

TEST(TaskScheduler, QtTimersFireOnTheEventLoopAndCancel)
{
    QObject context;
    QtTaskScheduler scheduler(&context);
    bool fired = false, cancelledFired = false;
    const auto keep = scheduler.schedule(20ms, [&] { fired = true; });
    const auto drop = scheduler.schedule(10ms, [&] { cancelledFired = true; });
    scheduler.cancel(drop);
    EXPECT_TRUE(scheduler.isPending(keep));
    QElapsedTimer t;
    t.start();
    while (!fired && t.elapsed() < 2000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    EXPECT_TRUE(fired);
    EXPECT_FALSE(cancelledFired);
    EXPECT_FALSE(scheduler.isPending(keep));
}
