#pragma once
// VLLogWriter: the log's serial background writer. One dedicated thread takes jobs (a line to
// write, or a new log to start) from a FIFO queue and performs them one at a time, in queue
// order. Everything the log keeps about its file is touched by these jobs, so a new log
// started by a caller takes effect exactly between the lines queued before it and those
// queued after it. Internal to VLLog.
//
// Lifecycle: the thread starts with the object and ends in stop() (also run by the
// destructor). After stop() queued jobs are dropped and new lines are discarded; a job passed
// to runAndWait() then runs on the caller.
// Threads: every member may be called from any thread. finishWriting() and runAndWait()
// called on the writer thread itself (the log's roll-over does this) perform the jobs queued
// so far inline instead of waiting, so the writer never waits on the job it is performing.

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
    VLLogWriter();
    ~VLLogWriter();
    VLLogWriter(const VLLogWriter&) = delete;
    VLLogWriter& operator=(const VLLogWriter&) = delete;

    // Queues one job; discarded once the writer has been stopped.
    void enqueue(std::function<void()> job);
    // Performs `job` after every job queued before it and returns when it is done, or was
    // discarded by cancelAll() or stop() before it started.
    void runAndWait(const std::function<void()>& job);
    // Queued jobs plus the one being performed.
    std::size_t pendingCount() const;
    // Returns when the queue is empty and no job is being performed.
    void finishWriting();
    // Discards every queued job that has not started.
    void cancelAll();
    // Ends the thread after the job in progress; queued jobs are discarded.
    void stop();
    bool isWriterThread() const;

    // Test-only. While paused the thread takes no new job, so a test can build up a queue of
    // a known length (the shut-down rule depends on it); finishWriting() while paused would
    // wait forever, so tests resume first. restartForTesting() resumes a paused writer and
    // gives a stopped one a new thread.
    void setPausedForTesting(bool paused);
    void restartForTesting();

private:
    struct Completion;
    void run();
    // Watches the queue for a few microseconds, without the lock, before the thread sleeps.
    void lingerForWork() const;
    void drainInline();
    // Drops every queued job; their captures are let go outside the lock.
    void discardQueued(bool stop);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> queue_;
    std::atomic<std::size_t> queued_{0}; // queue_.size(), set under mutex_, read by lingerForWork()
    bool running_ = false;        // a job is being performed by the thread
    bool paused_ = false;
    bool stopped_ = false;
    std::atomic<std::thread::id> writerId_{};
    std::thread thread_;          // started and joined only by the constructor, stop() and restartForTesting()
};
