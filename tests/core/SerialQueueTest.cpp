#include "core/SerialQueue.h"

#include <QObject>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <vector>

TEST(SerialQueue, RunsTasksOneAtATimeInOrderOnItsOwnThread)
{
    SerialQueue queue(QStringLiteral("vt2.test.order"));
    EXPECT_EQ(queue.label(), QStringLiteral("vt2.test.order"));
    std::vector<int> order; // touched only on the worker, read after sync
    std::atomic<int> running { 0 };
    std::atomic<bool> overlapped { false };
    std::atomic<bool> offThread { true };
    for (int i = 0; i < 200; ++i) {
        queue.async([&, i] {
            if (running.fetch_add(1) != 0) overlapped = true;
            if (!queue.isCurrent()) offThread = false;
            order.push_back(i);
            running.fetch_sub(1);
        });
    }
    queue.sync([] {});
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_FALSE(overlapped);
    EXPECT_TRUE(offThread);
    ASSERT_EQ(order.size(), 200u);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(order[i], i);
}

TEST(SerialQueue, SyncWaitsForTheTaskAndNestedSyncRunsInline)
{
    SerialQueue queue(QStringLiteral("vt2.test.sync"));
    int value = 0;
    queue.async([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        value = 1;
    });
    queue.sync([&] {
        EXPECT_EQ(value, 1); // after the earlier task
        queue.sync([&] { value = 2; }); // would deadlock if it queued behind itself
    });
    EXPECT_EQ(value, 2);
}

TEST(SerialQueue, DestructionDrainsQueuedWork)
{
    std::atomic<int> ran { 0 };
    {
        SerialQueue queue(QStringLiteral("vt2.test.drain"));
        queue.async([&] { std::this_thread::sleep_for(std::chrono::milliseconds(30)); });
        for (int i = 0; i < 10; ++i)
            queue.async([&] { ++ran; });
        // A task placed by a task while draining still runs.
        queue.async([&] { queue.async([&] { ++ran; }); });
    }
    EXPECT_EQ(ran.load(), 11);
}

TEST(SerialQueue, WorkForAGoneOwnerDoesNothing)
{
    SerialQueue queue(QStringLiteral("vt2.test.weak"));
    std::atomic<bool> gate { false };
    queue.async([&] {
        while (!gate)
            std::this_thread::yield();
    });

    auto owner = std::make_shared<int>(0);
    queue.async<int>(std::weak_ptr<int>(owner), [](int& v) { v = 1; });
    auto* object = new QObject;
    std::atomic<bool> qobjectRan { false };
    queue.async<QObject>(QPointer<QObject>(object), [&](QObject&) { qobjectRan = true; });

    auto survivor = std::make_shared<int>(0);
    queue.async<int>(std::weak_ptr<int>(survivor), [](int& v) { v = 7; });

    std::weak_ptr<int> watch = owner;
    owner.reset();
    delete object;
    gate = true;
    queue.sync([] {});
    EXPECT_TRUE(watch.expired());
    EXPECT_FALSE(qobjectRan);
    EXPECT_EQ(*survivor, 7);
}
