#include "discovery/NetworkSession.h"

#include "platform/system/AccessManager.h"
#include "platform/system/ProcessThreads.h"
#include "platform/system/SystemEnvironment.h"

#include <QCoreApplication>
#include <QNetworkReply>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <vector>

namespace discovery {
namespace {

// Every live session, so that an exit path can stop them all. Never destroyed: a worker
// thread may still end (and unregister its session) while the process runs its exit hooks.
struct Registry {
    std::mutex mutex;
    std::vector<NetworkSession*> sessions;
};

Registry& registry()
{
    static Registry* const instance = new Registry;
    return *instance;
}

// The application object's end stops the network threads while it still exists: it is the
// normal end of every run mode, and the access managers must not outlive it. The routine is
// taken off Qt's list when it runs, so a later application object gets it again.
std::atomic<bool> gStopAtApplicationEnd{false};

void stopAtApplicationEnd()
{
    gStopAtApplicationEnd = false;
    stopNetworkThreads();
}

} // namespace

FetchResult cancelledResult()
{
    FetchResult result;
    result.errorCode = QNetworkReply::OperationCanceledError;
    result.errorDescription = QStringLiteral("cancelled");
    return result;
}

NetworkSession::NetworkSession()
{
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.sessions.push_back(this);
}

NetworkSession::~NetworkSession()
{
    {
        Registry& r = registry();
        std::lock_guard lock(r.mutex);
        r.sessions.erase(std::remove(r.sessions.begin(), r.sessions.end(), this), r.sessions.end());
    }
    stop();
}

FetchResult NetworkSession::fetch(const QUrl& url)
{
    Job job{url, {}};
    std::unique_lock lock(mutex_);
    if (!thread_.joinable()) {
        if (!gStopAtApplicationEnd.exchange(true))
            qAddPostRoutine(stopAtApplicationEnd);
        thread_ = std::thread([this] { serve(); });
        serving_ = thread_.get_id();
    }
    job_ = &job;
    changed_.notify_all();
    changed_.wait(lock, [&] { return job.done; });
    return std::move(job.result);
}

void NetworkSession::stop()
{
    std::thread thread;
    {
        std::lock_guard lock(mutex_);
        thread = std::move(thread_);
        serving_ = {};
        // A request the network thread has not taken yet is answered here; one in progress
        // is ended by the quit and answered by the network thread.
        if (job_ && !job_->running) {
            job_->result = cancelledResult();
            job_->done = true;
            job_ = nullptr;
        }
        // Under the mutex, the serving thread's object is still there to be told.
        if (eventThread_)
            eventThread_->quit();
    }
    changed_.notify_all();
    if (thread.joinable())
        thread.join();
}

void NetworkSession::serve()
{
    const std::thread::id self = std::this_thread::get_id();
    {
        std::lock_guard lock(mutex_);
        // A stop that came before this thread ran has nothing to quit: it is not serving.
        if (serving_ != self)
            return;
        eventThread_ = QThread::currentThread();
    }
    sys::setCurrentThreadName(QByteArrayLiteral("Feed requests"));
    sys::AccessManager manager;
    QString trusted = sys::extraCertificateAuthorities();
    std::unique_lock lock(mutex_);
    for (;;) {
        // A stop takes the thread away from the session: then this thread is no longer its own.
        changed_.wait(lock, [&] { return serving_ != self || (job_ && !job_->running); });
        if (serving_ != self) {
            eventThread_ = nullptr;
            return;
        }
        Job* const job = job_;
        job->running = true;
        lock.unlock();
        // A connection kept from before was trusted under the old authorities.
        if (const QString now = sys::extraCertificateAuthorities(); now != trusted) {
            manager.endConnections();
            trusted = now;
        }
        performRequest(manager, job->url, job->result);
        lock.lock();
        job->done = true;
        job_ = nullptr;
        changed_.notify_all();
    }
}

void stopNetworkThreads()
{
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    for (NetworkSession* session : r.sessions)
        session->stop();
}

} // namespace discovery
