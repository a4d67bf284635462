#include "platform/system/WorkerPool.h"

namespace sys {

WorkerPool::WorkerPool(int maxThreads)
{
    pool_.setMaxThreadCount(maxThreads);
}

WorkerPool::~WorkerPool()
{
    waitForDone();
}

void WorkerPool::start(std::function<void()> task)
{
    {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    // One request per task; the request carries only `this`, which the pool thread reads
    // from the copy Qt made of it.
    pool_.start([this] { runNext(); });
}

void WorkerPool::runNext()
{
    std::function<void()> task;
    {
        std::lock_guard lock(mutex_);
        if (tasks_.empty())
            return;
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    task();
    // Let go under our lock, so that waitForDone's caller sees everything the task (and the
    // end of its captures) wrote.
    std::lock_guard lock(mutex_);
    task = nullptr;
}

void WorkerPool::waitForDone()
{
    pool_.waitForDone();
    std::lock_guard lock(mutex_);
}

} // namespace sys
