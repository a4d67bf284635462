#include "platform/system/SerialLane.h"

namespace sys {

void SerialLane::run(std::function<void()> step)
{
    {
        std::lock_guard lock(mutex_);
        if (busy_) {
            waiting_.push_back(std::move(step));
            return;
        }
        busy_ = true;
    }
    for (;;) {
        step();
        // Let go outside the lock: the captures may own anything.
        step = nullptr;
        std::lock_guard lock(mutex_);
        if (waiting_.empty()) {
            busy_ = false;
            return;
        }
        step = std::move(waiting_.front());
        waiting_.pop_front();
    }
}

} // namespace sys
