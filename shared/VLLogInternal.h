#pragma once
// The shared log instance's state. Internal to the VLLog sources.

#include "shared/VLLog.h"
#include "shared/VLLogWriter.h"

#include <QString>

#include <atomic>
#include <memory>
#include <mutex>

struct VLLog::Impl {
    // The file's state is changed only by the writer's jobs (a line, a new log), so a new log
    // takes effect between the lines queued before and after it. The lock is still needed:
    // appName() reads the name on the callers' threads, and shut-down and the test reset
    // touch the state once the writer has stopped or drained.
    mutable std::mutex fileMutex;
    QString appName; // the stored field; the getter may answer otherwise (see appName())
    int fd = -1;
    quint64 bytesWritten = 0;
    // Set while the writer rolls the file over: the lines it drains into the old file on
    // the way must not start a second roll-over each.
    bool rollingOver = false;

    // Characters handed to the writer and not yet written. Only a heuristic for appendLog's
    // wait, so it is kept without a lock (atomic only to stay well defined).
    std::atomic<quint64> bytesInQueue{0};
    std::atomic<bool> loggingDisabled{false};
    std::atomic<bool> noPrinting{false};

    // Made once with the shared instance and never replaced, so a caller logging on any
    // thread always finds it.
    VLLogWriter writer;
};

namespace vllog {

// Rolls the file over once this many bytes have been written to it.
inline constexpr quint64 kRollOverBytes = 5000000;
inline constexpr int kGenerations = 5;
// With more pending lines than this at termination they are discarded.
inline constexpr std::size_t kMaxPendingAtExit = 10;

// "YYYY-MM-DD HH:MM:SS +0000" of the current time.
QString timeStamp();
// Writes to standard output as UTF-8 and flushes, so echoes keep their order with puts.
void printToStandardOutput(const QString& text);

} // namespace vllog
