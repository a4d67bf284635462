#pragma once
// SerialLane: runs steps one at a time, in the order they were handed in, without keeping a
// thread of its own. The caller that finds the lane idle runs its step at once and then every
// step handed in meanwhile; a caller that finds it busy leaves its step behind and returns at
// once. On a worker pool this keeps work that must not overlap in one place, while the other
// workers go on with what may run in parallel instead of waiting for a lock.
//
// Steps must not throw. Whoever runs a lane's steps returns only when the lane is empty, so
// when every caller of run() has returned, every step handed in has been performed.
// Lifecycle: plain member; destroy it only when no run() is in progress. Copy is deleted.
// Threads: run() from any thread; steps run on the callers' threads, never two at once.

#include <deque>
#include <functional>
#include <mutex>

namespace sys {

class SerialLane {
public:
    SerialLane() = default;
    SerialLane(const SerialLane&) = delete;
    SerialLane& operator=(const SerialLane&) = delete;

    void run(std::function<void()> step);

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> waiting_;
    bool busy_ = false; // a caller is performing the lane's steps
};

} // namespace sys
