#pragma once
// LogFixture: a fresh log for one in-process test. Points HOME and VELMORA_SYSROOT at a new
// temporary tree (both Library/Logs/Velmora folders exist, so the current file can be created
// whether or not the test runs as root), gives the shared VLLog a fresh state through its
// test-only reset, and reads back what was written.
//
// Lifecycle: one per test, on the main thread; the environment is restored afterwards.

#include "support/ScopedEnvironment.h"

#include "shared/VLLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <atomic>
#include <functional>
#include <thread>

namespace vltest {

class LogFixture {
public:
    // createLog: start a new log (printing off). createFolders: make both log folders first.
    explicit LogFixture(bool createLog = true, bool createFolders = true)
    {
        env_.set("HOME", dir_.filePath(QStringLiteral("home")));
        env_.set("VELMORA_SYSROOT", dir_.filePath(QStringLiteral("sysroot")));
        if (createFolders) {
            QDir().mkpath(dir_.filePath(QStringLiteral("sysroot/Library/Logs/Velmora")));
            QDir().mkpath(VLLog::logFolder());
        }
        VLLog::resetForTesting();
        if (createLog)
            VLLog::createNewLog(QString(), true);
    }
    ~LogFixture() { VLLog::resetForTesting(); }
    LogFixture(const LogFixture&) = delete;
    LogFixture& operator=(const LogFixture&) = delete;

    QString path(const QString& relative) const { return dir_.filePath(relative); }
    ScopedEnvironment& environment() { return env_; }

    // Everything in the current log file once the queue has drained.
    static QString logText()
    {
        VLLog::finishWriting();
        QFile file(VLLog::currentLogPath());
        if (!file.open(QIODevice::ReadOnly))
            return QString();
        return QString::fromUtf8(file.readAll());
    }

private:
    QTemporaryDir dir_;
    ScopedEnvironment env_;
};

// Runs `work` on a new thread while the main thread keeps its event loop turning, so work
// that hops to the main thread and waits (time-outs) can proceed. `beforeEvents`, when
// given, is polled (without turning the event loop) until it returns true first.
inline void runOffMainThread(const std::function<void()>& work, const std::function<bool()>& beforeEvents = {})
{
    std::atomic<bool> done{false};
    std::thread worker([&] {
        work();
        done = true;
    });
    while (beforeEvents && !beforeEvents() && !done)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    while (!done) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    worker.join();
    QCoreApplication::processEvents();
}

} // namespace vltest
