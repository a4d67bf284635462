// The lane that runs group checks one at a time without making a second caller wait.
#include "platform/system/SerialLane.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

TEST(SerialLane, ACallerThatFindsTheLaneBusyLeavesItsStepToTheRunnerAndGoesOn)
{
    sys::SerialLane lane;
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    // Touched only by the steps (one at a time) and, after the runner's join, by the test.
    std::vector<int> order;
    std::vector<std::thread::id> ranOn;
    std::thread runner([&] {
        lane.run([&] {
            entered.set_value();
            released.wait();
            order.push_back(1);
            ranOn.push_back(std::this_thread::get_id());
        });
    });
    entered.get_future().wait();
    // Handed in while the first step is held: both calls must return without waiting for it.
    auto handIn = std::async(std::launch::async, [&] {
        for (int step : {2, 3})
            lane.run([&, step] {
                order.push_back(step);
                ranOn.push_back(std::this_thread::get_id());
            });
    });
    const bool wentOn = handIn.wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    release.set_value();
    runner.join();
    handIn.wait();
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ranOn, (std::vector<std::thread::id>(3, ranOn.front())));

    // An idle lane runs the step on the caller, at once.
    bool ran = false;
    lane.run([&] { ran = true; });
    EXPECT_TRUE(ran);
}

