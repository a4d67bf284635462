#pragma once
// WorkerPool: an operation queue that runs at most the given number of tasks at once on a
// QThreadPool, in the order they were started (one thread: a serial queue).
//
// The tasks wait in our own queue under a std::mutex; the Qt pool is handed only "take the
// next task" requests that carry nothing but this object's address. Qt is not built with the
// thread checker, so the locks inside QThreadPool are invisible to it: a task handed over
// through them looked as if the worker read what the starting thread had written without any
// synchronisation. Behind our lock the hand-off is one the checker sees.
//
// Lifecycle: the destructor waits for every task, queued or running. Copy is deleted.
// Threads: every member may be called from any thread; the tasks run on the pool's threads.

#include <QThreadPool>

#include <deque>
#include <functional>
#include <mutex>

namespace sys {

class WorkerPool {
public:
    explicit WorkerPool(int maxThreads = 1);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    void setMaxThreadCount(int maxThreads) { pool_.setMaxThreadCount(maxThreads); }
    void start(std::function<void()> task);
    // Returns when every task started before the call has finished; what the tasks wrote is
    // then visible to the caller.
    void waitForDone();

private:
    void runNext();

    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    QThreadPool pool_;
};

} // namespace sys
