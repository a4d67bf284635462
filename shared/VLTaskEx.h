#pragma once
// VLTaskEx: runs a child process from an absolute executable path and an argument list,
// started directly (posix_spawn, never a shell), in one of these ways:
//   fire and forget        runTaskAndReturn
//   run and wait           runTask, runTaskTimeout
//   run and capture        dataFromTask..., stringFromTask...
//   run and return status  terminationCodeFromTask...
//   asynchronous           asyncDataFromTask (an instance; output handed over chunk by chunk)
// Tool paths are absolute paths the caller has already resolved (sys::rooted); nothing here
// prefixes them. Failures are logged and returned (false, std::nullopt, -1), never thrown,
// except that the terminationCodeFromTask family and runTaskAndReturn let a launch failure
// (fnd::PlatformException) through to the caller.
//
// Names: the time-out forms carry the keyword ("dataFromTaskTimeout") so that an integer
// time-out can never be mistaken for another argument; they take seconds and truncate them
// toward zero (0.9 s is 0 s). Each static time-out form creates a fresh instance, calls the
// instance form ("...WithTimer") and lets the instance go; the timer thread keeps the
// instance alive until it has slept its full time.
//
// Threads: every static member may be called from any thread and blocks the caller while it
// waits. A time-out acts on the main thread (sys::runOnMainThreadAndWait): armed by a call
// made on the main thread itself it cannot act before that call returns, and then finds
// nothing to do. Asynchronous output is delivered on the reader thread, not the main thread.

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

// One child process. Created unlaunched; the owner wires its standard streams, then calls
// launch(). Thread-safe: status queries and terminate() may come from any thread (the
// time-out asks from the main thread while a worker reads the pipes). Destroying an object
// whose child has not been waited for hands the child to a reaper thread, so no zombies
// accumulate; our pipe ends are closed.
class VLChildProcess {
public:
    enum class Stream { Inherit, Null, Pipe };
    using Environment = QMap<QString, QString>;

    VLChildProcess(QString launchPath, QStringList arguments);
    ~VLChildProcess();
    VLChildProcess(const VLChildProcess&) = delete;
    VLChildProcess& operator=(const VLChildProcess&) = delete;

    // Without an environment the child inherits the parent's.
    void setEnvironment(const Environment& environment);
    void setStandardInput(Stream stream);   // default Inherit
    void setStandardOutput(Stream stream);  // default Inherit
    void setStandardError(Stream stream);   // default Inherit

    // Starts the child. Throws fnd::PlatformException ("NSInvalidArgumentException") when it
    // cannot be started (missing or relative path, not executable, already launched).
    void launch();

    const QString& launchPath() const { return launchPath_; }
    const QStringList& arguments() const { return arguments_; }
    qint64 processIdentifier() const; // 0 before launch

    // What is available on our end of the output (error) pipe: blocks until at least one
    // byte arrives or the pipe closes; empty at end of stream or when that stream is not a pipe.
    QByteArray readAvailableOutput();
    QByteArray readAvailableError();
    void closeOutput(); // closes our read end; later reads return empty
    void closeError();

    bool isRunning();          // false before launch and after exit
    void waitUntilExit();
    // The exit status; the signal number when a signal ended the child; -1 while running.
    int terminationStatus();
    void terminate();          // SIGTERM, only while the child is running

private:
    struct State;
    QString launchPath_;
    QStringList arguments_;
    std::unique_ptr<State> state_;
};

// A slot that receives the child of a call before it is launched (the "task" out-parameter).
// Thread-safe, so a time-out on the main thread can look at the child a worker is running.
class VLTaskRef {
public:
    std::shared_ptr<VLChildProcess> get() const;
    void set(std::shared_ptr<VLChildProcess> child);
    void clear() { set(nullptr); }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<VLChildProcess> child_;
};

class VLTaskEx : public std::enable_shared_from_this<VLTaskEx> {
public:
    using Environment = VLChildProcess::Environment;
    // ASCII decoding rejects any byte above 0x7F; text that does not decode is returned empty.
    enum class Encoding { ASCII, UTF8, Latin1 };
    // The delegate's operation: (chunk of output, the instance, the caller's object).
    // An empty function stands for "no delegate or selector set".
    using Delivery = std::function<void(const QByteArray& chunk, VLTaskEx& task, const QVariant& object)>;

    // Instances live in a shared_ptr: timer and reader threads keep them alive.
    static std::shared_ptr<VLTaskEx> create();
    ~VLTaskEx();
    VLTaskEx(const VLTaskEx&) = delete;
    VLTaskEx& operator=(const VLTaskEx&) = delete;

    // --- run and wait; standard output and error go to the null device -------------------
    // Checks (executable, not a package) only a non-empty path starting with "/": a relative
    // name fails at launch, which is logged ("Exception running task %@: %@") and gives false.
    // True when the child ran, whatever its exit status.
    static bool runTask(const QString& path, const QStringList& arguments = {}, VLTaskRef* task = nullptr);
    // Waits for the child however long it runs: its timer never finds a child to terminate.
    static void runTaskTimeout(const QString& path, const QStringList& arguments, double seconds);
    // Fire and forget; the child is reaped in the background.
    static void runTaskAndReturn(const QString& path, const QStringList& arguments = {});

    // --- run and capture (output and error captured unless the flags say otherwise) -----
    // Output is read to its end before errors are drained; the result is the output when it
    // is non-empty, else the errors when non-empty, else the (empty) output. std::nullopt on
    // refusal or a failed launch. The call does not wait for the child to exit.
    [[nodiscard]] static std::optional<QByteArray> dataFromTask(const QString& path, const QStringList& arguments = {},
        VLTaskRef* task = nullptr, const std::optional<Environment>& environment = std::nullopt,
        bool logOutput = true, bool logError = true);
    [[nodiscard]] static std::optional<QByteArray> dataFromTaskTimeout(const QString& path,
        const QStringList& arguments, double seconds, bool logOutput = true, bool logError = true);

    // String forms: the data decoded with the encoding (ASCII by default); "" when no data.
    [[nodiscard]] static QString stringFromTask(const QString& path, const QStringList& arguments = {},
        VLTaskRef* task = nullptr);
    [[nodiscard]] static QString stringFromTask(const QString& path, const QStringList& arguments,
        Encoding encoding, VLTaskRef* task = nullptr);
    [[nodiscard]] static QString stringFromTaskTimeout(const QString& path, const QStringList& arguments, double seconds);
    [[nodiscard]] static QString stringFromTaskTimeout(const QString& path, const QStringList& arguments,
        Encoding encoding, double seconds, bool logOutput = true, bool logError = true);

    // --- exit status; standard output and error go to the null device --------------------
    // -1 on refusal. A launch failure is not caught (fnd::PlatformException).
    [[nodiscard]] static int terminationCodeFromTask(const QString& path, const QStringList& arguments = {},
        VLTaskRef* task = nullptr);
    [[nodiscard]] static int terminationCodeFromTaskTimeout(const QString& path, const QStringList& arguments,
        double seconds);

    // --- instance forms that arm the time-out (any thread but the main thread to be useful) --
    void runTaskWithTimer(const QString& path, const QStringList& arguments, double seconds);
    [[nodiscard]] std::optional<QByteArray> dataFromTaskWithTimer(const QString& path, const QStringList& arguments,
        double seconds, bool logOutput = true, bool logError = true);
    [[nodiscard]] int terminationCodeFromTaskWithTimer(const QString& path, const QStringList& arguments, double seconds);
    // Main thread: terminates theTask when it is set and running
    // ("Task %@ timed out. Terminating..."); otherwise does nothing.
    void timeout();

    // --- asynchronous ----------------------------------------------------------------------
    // Stores delegate and object, creates theTask (output to a pipe, errors to the null
    // device, input inherited) and starts a detached reader thread that launches it. Each
    // non-empty chunk goes to the delegate on that thread; at the end of output the delegate
    // gets one empty chunk, then terminateAsyncTask runs. No check is made before the thread.
    void asyncDataFromTask(const QString& path, const QStringList& arguments, Delivery delegate,
        const QVariant& object = {}, const std::optional<Environment>& environment = std::nullopt);
    // Closes our end of the output pipe, clears delegate and object, sends SIGTERM to a
    // child still running and clears theTask. Any thread.
    void terminateAsyncTask();
    void terminateTask() { terminateAsyncTask(); }

    // Accessors of the instance's fields (the delegate and its selector are one Delivery).
    std::shared_ptr<VLChildProcess> theTask() const { return theTask_.get(); }
    void setTheTask(std::shared_ptr<VLChildProcess> child) { theTask_.set(std::move(child)); }
    Delivery delegate() const;
    void setDelegate(Delivery delegate);
    QVariant object() const;
    void setObject(const QVariant& object);

private:
    VLTaskEx() = default;
    void startTimer(double seconds);
    void launchAsyncTask();
    void asyncTaskReturnData(const QByteArray& chunk);

    VLTaskRef theTask_;
    mutable std::mutex fieldsMutex_; // guards delegate_ and object_
    Delivery delegate_;
    QVariant object_;
};
