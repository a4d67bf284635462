#pragma once
// ChildProcess: a program started by a test with fork and exec, its exit status and what it
// printed. Not QProcess: the Qt we build with starts children with clone(CLONE_VM |
// CLONE_VFORK), which runs the child on the starting thread's state and leaves the thread
// checker's record of that thread damaged (every later lock unseen, races reported that were
// none); fork() is seen by the checker and leaves the parent alone.
//
// Lifecycle: construct, start(), then wait, read and signal; the destructor kills (SIGKILL)
// and reaps a child that still runs. Output is collected while a wait or read call runs, so a
// child that prints much while nobody waits blocks once its pipe is full.
// Threads: one thread at a time.

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>
#include <sys/types.h>

namespace vltest {

struct ChildOptions {
    std::optional<QStringList> environment; // "NAME=value" entries; absent: the test's own
    QString workingDirectory;               // empty: the test's
    std::optional<uint> uid;                // run as this user id (group id = uid, no others)
    QString standardOutputFile;             // standard output to this file (truncated), not a pipe
    QString standardErrorFile;              // standard error likewise
    bool discardOutput = false;             // standard output and error (unless to a file) to the null device
    QByteArray standardInput;               // what standard input holds; it ends after that...
    bool keepInputOpen = false;             // ...unless it is a pipe kept open until closeInput()
    bool endsWithParent = false;            // SIGTERM when the starting thread ends
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
    void terminate() { signal(15); } // SIGTERM while it runs
    void kill() { signal(9); }       // SIGKILL while it runs
    void closeInput();               // ends a standard input kept open

    // The next whole line of standard output (without its line break), waiting at most
    // timeoutMs; nothing when the time is up or the output ended first.
    std::optional<QByteArray> readLine(int timeoutMs);
    QByteArray standardOutput() const { return output_[0]; }
    QByteArray standardError() const { return output_[1]; }

private:
    // Moves what is ready from the pipes to the buffers, waiting at most timeoutMs; false when
    // nothing was ready.
    bool pump(int timeoutMs);
    void reap(bool block);
    void signal(int number);
    void closeAll();

    pid_t pid_ = 0;
    bool ended_ = false;
    int exitCode_ = -1;
    int signal_ = 0;
    int inFd_ = -1;
    int outFds_[2] = {-1, -1}; // standard output and error
    QByteArray output_[2];
    qsizetype lineStart_ = 0;
    QString error_;
};

// Runs a program to its end; true when it exited with status 0 within timeoutMs.
[[nodiscard]] bool runToSuccess(const QString& program, const QStringList& arguments, int timeoutMs = 30000);

} // namespace vltest
