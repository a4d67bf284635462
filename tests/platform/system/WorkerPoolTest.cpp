#include "platform/system/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>
#include <vector>

namespace {

TEST(WorkerPool, OneThreadRunsTasksInTheOrderTheyWereStarted)
{
    sys::WorkerPool pool(1);
    // Plain data: only the tasks (one at a time) and, after waitForDone, the test touch it.
    std::vector<int> order;
    for (int i = 0; i < 50; ++i)
        pool.start([&order, i] { order.push_back(i); });
    pool.waitForDone();
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

TEST(WorkerPool, RunsAtMostItsThreadCountAtOnceAndItsEndWaitsForEveryTask)
{
    std::atomic<int> running{0};
    std::atomic<int> most{0};
    std::atomic<int> finished{0};
    {
        sys::WorkerPool pool(4);
        EXPECT_EQ(pool.maxThreadCount(), 4);
        for (int i = 0; i < 12; ++i) {
            pool.start([&] {
                const int now = ++running;
                for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                --running;
                ++finished;
            });
        }
    }
    EXPECT_EQ(finished, 12);
    EXPECT_LE(most, 4);
}

} // namespace
