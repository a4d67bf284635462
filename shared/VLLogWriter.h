#pragma once
// VLLogWriter: the log's serial background writer. One dedicated thread takes lines from a
// FIFO queue and hands each to the perform function; at most one line is performed at a
// time, in queue order. Internal to VLLog.
//
// Lifecycle: the thread starts with the object and ends in stop() (also run by the
// destructor). After stop() the queue is dropped: enqueued lines are discarded.
// Threads: every member may be called from any thread. finishWriting() called on the writer
// thread itself (the log's roll-over does this) performs the lines queued so far inline
// instead of waiting, so the writer never waits on the line it is performing.

#include <QString>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

class VLLogWriter {
public:
    explicit VLLogWriter(std::function<void(const QString&)> perform);
    ~VLLogWriter();
    VLLogWriter(const VLLogWriter&) = delete;
    VLLogWriter& operator=(const VLLogWriter&) = delete;

    // Queues one line; discarded once the writer has been stopped.
    void enqueue(QString text);
    // Queued lines plus the one being performed.
    std::size_t pendingCount() const;
    // Returns when every line queued before the call has been performed.
    void finishWriting();
    // Discards every queued line that has not started.
    void cancelAll();
    // Ends the thread after the line in progress; queued lines are discarded.
    void stop();
    bool isWriterThread() const;

    // Test-only: while paused the thread takes no new line, so a test can build up a queue
    // of a known length (the shut-down rule depends on it). finishWriting() while paused
    // would wait forever; tests resume first.
    void setPausedForTesting(bool paused);

private:
    void run();
    bool takeNext(QString& text); // under no lock; pops one queued line

    std::function<void(const QString&)> perform_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<QString> queue_;
    bool running_ = false;  // a line is being performed by the thread
    bool paused_ = false;
    bool stopped_ = false;
    std::atomic<std::thread::id> writerId_{};
    std::thread thread_;
};
