#include "shared/VLLogWriter.h"

#include <chrono>
#include <memory>

// Tells a runAndWait() caller that its job is over: let go when the job has run, or when it
// is discarded unperformed. Always let go outside the writer's lock.
struct VLLogWriter::Completion {
    Completion(VLLogWriter& w, bool& d) : writer(w), done(d) {}
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;
    VLLogWriter& writer;
    bool& done;
    ~Completion()
    {
        {
            std::lock_guard lock(writer.mutex_);
            done = true;
        }
        writer.changed_.notify_all();
    }
};

VLLogWriter::VLLogWriter()
{
    thread_ = std::thread([this] { run(); });
}

VLLogWriter::~VLLogWriter()
{
    stop();
}

void VLLogWriter::enqueue(std::function<void()> job)
{
    {
        std::lock_guard lock(mutex_);
        if (stopped_)
            return;
        queue_.push_back(std::move(job));
        queued_ = queue_.size();
    }
    changed_.notify_all();
}

void VLLogWriter::runAndWait(const std::function<void()>& job)
{
    if (isWriterThread()) {
        drainInline();
        job();
        return;
    }
    bool done = false;
    {
        std::unique_lock lock(mutex_);
        if (!stopped_) {
            queue_.push_back([&job, completion = std::make_shared<Completion>(*this, done)] { job(); });
            queued_ = queue_.size();
        } else {
            // No writer any more: nothing else performs jobs, so the caller may.
            lock.unlock();
            job();
            return;
        }
    }
    changed_.notify_all();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return done; });
}

std::size_t VLLogWriter::pendingCount() const
{
    std::lock_guard lock(mutex_);
    return queue_.size() + (running_ ? 1 : 0);
}

void VLLogWriter::finishWriting()
{
    if (isWriterThread()) {
        drainInline();
        return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return queue_.empty() && !running_; });
}

void VLLogWriter::drainInline()
{
    // The job in progress is ours: perform what was queued before us, in order.
    for (;;) {
        std::function<void()> job;
        {
            std::lock_guard lock(mutex_);
            if (queue_.empty())
                break;
            job = std::move(queue_.front());
            queue_.pop_front();
            queued_ = queue_.size();
        }
        job();
    }
    changed_.notify_all();
}

void VLLogWriter::discardQueued(bool stop)
{
    std::deque<std::function<void()>> dropped;
    {
        std::lock_guard lock(mutex_);
        stopped_ = stopped_ || stop;
        dropped.swap(queue_);
        queued_ = 0;
    }
    dropped.clear();
    changed_.notify_all();
}

void VLLogWriter::cancelAll()
{
    discardQueued(false);
}

void VLLogWriter::stop()
{
    discardQueued(true);
    if (!thread_.joinable())
        return;
    if (isWriterThread())
        thread_.detach();
    else
        thread_.join();
}

bool VLLogWriter::isWriterThread() const
{
    return std::this_thread::get_id() == writerId_.load();
}

void VLLogWriter::setPausedForTesting(bool paused)
{
    {
        std::lock_guard lock(mutex_);
        paused_ = paused;
    }
    changed_.notify_all();
}

void VLLogWriter::restartForTesting()
{
    setPausedForTesting(false);
    {
        std::lock_guard lock(mutex_);
        if (!stopped_)
            return;
        stopped_ = false;
    }
    thread_ = std::thread([this] { run(); });
}

void VLLogWriter::lingerForWork() const
{
    // A burst of lines (a folder scan logs one per folder) comes faster than a sleeping
    // thread is woken, and each wake-up is paid by the caller of the line. Watching the
    // queue a moment longer before sleeping lets the next line of a burst find it awake.
    constexpr auto kLinger = std::chrono::microseconds(30);
    const auto until = std::chrono::steady_clock::now() + kLinger;
    while (queued_.load(std::memory_order_acquire) == 0 && std::chrono::steady_clock::now() < until) {
    }
}

void VLLogWriter::run()
{
    writerId_ = std::this_thread::get_id();
    std::unique_lock lock(mutex_);
    for (;;) {
        if (queue_.empty()) {
            lock.unlock();
            lingerForWork();
            lock.lock();
        }
        changed_.wait(lock, [this] { return stopped_ || (!paused_ && !queue_.empty()); });
        if (stopped_)
            return;
        std::function<void()> job = std::move(queue_.front());
        queue_.pop_front();
        queued_ = queue_.size();
        running_ = true;
        lock.unlock();
        job();
        job = nullptr; // outside the lock: a finished runAndWait() job tells its caller here
        lock.lock();
        running_ = false;
        changed_.notify_all();
    }
}
