// Main-thread calls. A worker queues its work under our own lock, asks the application
// object's thread (through a queued call by name) to run what is queued, and waits on a
// condition variable until its work has run, or has been dropped with the application.
//
// Why not Qt's blocking queued invocation, as before: Qt is not built with the thread
// checker, so the locks of its event queue and of its blocking wait are invisible to it, and
// every hand-off through them looked like a data race on the work and its captures. The
// queue and the wait here are std::mutex and std::condition_variable, which it sees; all
// that crosses Qt's queue is the request to look at ours.

#include "platform/system/MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QThread>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>

namespace sys::mainthread {

struct PendingCall {
    const std::function<void()>* work = nullptr;
    bool done = false; // ran, or was dropped with the application
};

class Runner;

// The queue shared by the workers and the runner. Never destroyed before the process ends.
struct Queue {
    std::mutex mutex;
    std::condition_variable finished;
    std::deque<std::shared_ptr<PendingCall>> pending;
    Runner* runner = nullptr; // the application's runner; none without an application object
};

Queue& queue()
{
    static Queue instance;
    return instance;
}

// Runs the queued work on the application object's thread. Created with the application
// object (as its child, so it goes with it); on the way out it releases every waiter whose
// work has not run.
class Runner : public QObject {
    Q_OBJECT
public:
    explicit Runner(QObject* application) : QObject(application)
    {
        std::lock_guard lock(queue().mutex);
        queue().runner = this;
    }
    ~Runner() override
    {
        {
            std::lock_guard lock(queue().mutex);
            queue().runner = nullptr;
            for (const auto& call : queue().pending)
                call->done = true;
            queue().pending.clear();
        }
        queue().finished.notify_all();
    }

    Q_INVOKABLE void runPending()
    {
        for (;;) {
            std::shared_ptr<PendingCall> call;
            {
                std::lock_guard lock(queue().mutex);
                if (queue().pending.empty())
                    return;
                call = queue().pending.front();
                queue().pending.pop_front();
            }
            (*call->work)();
            {
                std::lock_guard lock(queue().mutex);
                call->done = true;
            }
            queue().finished.notify_all();
        }
    }
};

void createRunner()
{
    new Runner(QCoreApplication::instance()); // owned by the application object
}

Q_COREAPP_STARTUP_FUNCTION(createRunner)

} // namespace sys::mainthread

namespace sys {

bool isMainThread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    // Without an application object there is no event loop to hop to: every thread counts
    // as "main" so work runs directly.
    if (!app)
        return true;
    return QThread::currentThread() == app->thread();
}

void runOnMainThreadAndWait(const std::function<void()>& work)
{
    if (!work)
        return;
    if (isMainThread()) {
        work();
        return;
    }
    mainthread::Queue& q = mainthread::queue();
    auto call = std::make_shared<mainthread::PendingCall>();
    call->work = &work;
    std::unique_lock lock(q.mutex);
    if (!q.runner) {
        // The application object is going or gone: nothing can run on its thread any more.
        lock.unlock();
        work();
        return;
    }
    q.pending.push_back(call);
    // Under the lock, so the runner cannot go away between the look-up and the request.
    QMetaObject::invokeMethod(q.runner, "runPending", Qt::QueuedConnection);
    q.finished.wait(lock, [&] { return call->done; });
}

} // namespace sys

#include "MainThread.moc"
