#include "shared/VLLogWriter.h"

VLLogWriter::VLLogWriter(std::function<void(const QString&)> perform)
    : perform_(std::move(perform))
{
    thread_ = std::thread([this] { run(); });
}

VLLogWriter::~VLLogWriter()
{
    stop();
}

void VLLogWriter::enqueue(QString text)
{
    {
        std::lock_guard lock(mutex_);
        if (stopped_)
            return;
        queue_.push_back(std::move(text));
    }
    changed_.notify_all();
}

std::size_t VLLogWriter::pendingCount() const
{
    std::lock_guard lock(mutex_);
    return queue_.size() + (running_ ? 1 : 0);
}

bool VLLogWriter::takeNext(QString& text)
{
    std::lock_guard lock(mutex_);
    if (queue_.empty())
        return false;
    text = std::move(queue_.front());
    queue_.pop_front();
    return true;
}

void VLLogWriter::finishWriting()
{
    if (isWriterThread()) {
        // The line in progress is ours: write out what was queued before us, in order.
        QString text;
        while (takeNext(text))
            perform_(text);
        changed_.notify_all();
        return;
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return queue_.empty() && !running_; });
}

void VLLogWriter::cancelAll()
{
    {
        std::lock_guard lock(mutex_);
        queue_.clear();
    }
    changed_.notify_all();
}

void VLLogWriter::stop()
{
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
        queue_.clear();
    }
    changed_.notify_all();
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

void VLLogWriter::run()
{
    writerId_ = std::this_thread::get_id();
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopped_ || (!paused_ && !queue_.empty()); });
        if (stopped_)
            return;
        QString text = std::move(queue_.front());
        queue_.pop_front();
        running_ = true;
        lock.unlock();
        perform_(text);
        lock.lock();
        running_ = false;
        changed_.notify_all();
    }
}
