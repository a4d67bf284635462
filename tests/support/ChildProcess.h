#pragma once
// ChildProcess: a program started by a test with fork and exec, its exit status and what it
// printed.
//
// Why not QProcess::start: the Qt we build with starts children with
// clone(CLONE_VM | CLONE_VFORK), so until it execs the child runs in the parent's memory and
// on the starting thread's own thread-local state, calling the C library through the thread
// checker's hooks as if it were that thread. The checker's record of that thread is left
// damaged: its later locks are no longer seen, and every test that had started a server or
// run an executable reported data races that were none. fork() is seen by the checker and
// leaves the parent's state alone.
//
// Lifecycle: construct, start(), then wait, read and signal; the destructor kills (SIGKILL)
// and reaps a child that still runs. Output is collected while a wait or read call runs and
// is kept until the object goes, so a child that prints much while nobody waits blocks once
// its pipe is full, as it would under QProcess without an event loop.
// Threads: one thread at a time.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <sys/types.h>

namespace vltest {

struct ChildOptions {
    std::optional<QStringList> environment; // "NAME=value" entries; absent: the test's own
    QString workingDirectory;               // empty: the test's
    std::optional<uint> uid;                // run as this user id (group id = uid, no others)
    bool endsWithParent = false;            // SIGTERM when the starting thread ends
    QString standardOutputFile;             // standard output to this file (truncated), not a pipe
    QString standardErrorFile;              // standard error likewise
    bool discardOutput = false;             // standard output and error to the null device
    QByteArray standardInput;               // fed to standard input, which then ends...
    bool keepInputOpen = false;             // ...unless this keeps it open until closeInput()
};

class ChildProcess {
public:
    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // False (with errorString()) when the program could not be started.
    [[nodiscard]] bool start(const QString& program, const QStringList& arguments, const ChildOptions& options = {});
    pid_t pid() const { return pid_; }
    QString errorString() const { return error_; }

    bool isRunning();
    // True when the child has ended (within timeoutMs).
    [[nodiscard]] bool waitForFinished(int timeoutMs);
    bool crashed() const { return ended_ && signal_ != 0; } // ended by a signal
    int exitCode() const { return ended_ && signal_ == 0 ? exitCode_ : -1; }
    void terminate(); // SIGTERM while it runs
    void kill();      // SIGKILL while it runs
    void closeInput(); // ends standard input (a child that reads it to its end then ends too)

    // The next whole line of standard output (without its line break), waiting at most
    // timeoutMs; nothing when the time is up or the output ended first.
    std::optional<QByteArray> readLine(int timeoutMs);
    QByteArray standardOutput() const { return output_; }
    QByteArray standardError() const { return errorOutput_; }

private:
    // Moves what is ready between the pipes and the buffers, waiting at most timeoutMs;
    // false when nothing was ready.
    bool pump(int timeoutMs);
    bool waitUntil(const std::function<bool()>& done, int timeoutMs);
    void reap(bool block);
    void closeAll();

    pid_t pid_ = 0;
    bool ended_ = false;
    int exitCode_ = -1;
    int signal_ = 0;
    int inFd_ = -1;
    int outFd_ = -1;
    int errFd_ = -1;
    QByteArray pendingInput_;
    bool keepInputOpen_ = false;
    QByteArray output_;
    QByteArray errorOutput_;
    qsizetype lineStart_ = 0;
    QString error_;
};

// Runs a program to its end; true when it exited with status 0 within timeoutMs.
[[nodiscard]] bool runToSuccess(const QString& program, const QStringList& arguments, int timeoutMs = 30000);

} // namespace vltest
