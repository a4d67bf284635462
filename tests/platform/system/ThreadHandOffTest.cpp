// Handing work to other threads: to the main thread, waiting for it, and to a worker pool that
// keeps the start order and waits for every task at its end (the thread limit is Qt's own).
#include "platform/system/MainThread.h"
#include "platform/system/WorkerPool.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

TEST(MainThread, WorkFromAnotherThreadRunsOnTheMainThreadAndIsWaitedFor)
{
    std::atomic<QThread*> ranOn = nullptr;
    std::atomic<bool> returnedAfterWork = false;
    std::atomic<bool> workerSawMain = true;
    std::thread worker([&] {
        workerSawMain = sys::isMainThread();
        sys::runOnMainThreadAndWait([&] {
            QThread::msleep(50); // a caller that did not wait would return before this ends
            ranOn = QThread::currentThread();
        });
        returnedAfterWork = ranOn.load() != nullptr;
    });
    for (const QDeadlineTimer guard(10000); !ranOn && !guard.hasExpired();)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    worker.join();
    EXPECT_TRUE(!workerSawMain && returnedAfterWork);
    EXPECT_EQ(ranOn.load(), QCoreApplication::instance()->thread());
    bool direct = false;
    sys::runOnMainThreadAndWait([&] { direct = sys::isMainThread(); });
    EXPECT_TRUE(direct);
}

TEST(WorkerPool, OneThreadKeepsTheStartOrderAndTheEndWaitsForEveryTask)
{
    std::vector<int> order; // only the tasks (one at a time) and, after waitForDone, the test touch it
    sys::WorkerPool serial(1);
    for (int i = 0; i < 50; ++i)
        serial.start([&order, i] { order.push_back(i); });
    serial.waitForDone();
    EXPECT_EQ(order.size(), 50u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end())) << "one thread keeps the start order";

    std::atomic<int> finished{0};
    {
        sys::WorkerPool pool(1);
        pool.setMaxThreadCount(4);
        for (int i = 0; i < 12; ++i)
            pool.start([&finished] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                ++finished;
            });
    }
    EXPECT_EQ(finished, 12) << "the end waits for every task, queued or running";
}
