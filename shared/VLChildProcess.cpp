// VLChildProcess: a child started with posix_spawn (no shell), its pipes, its exit status
// and the background reaping of children nobody waits for.

#include "shared/VLTaskEx.h"

#include "platform/foundation/PlatformException.h"

#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

// Our end of one pipe. A read may be in progress on one thread while another closes the
// end; the descriptor is then pointed at the null device and really closed only when the
// read returns, so its number can never be reused under the reader.
class PipeEnd {
public:
    ~PipeEnd()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    void adopt(int fd)
    {
        std::lock_guard lock(mutex_);
        fd_ = fd;
    }
    QByteArray readAvailable()
    {
        int fd = -1;
        {
            std::lock_guard lock(mutex_);
            if (fd_ < 0 || closed_)
                return {};
            fd = fd_;
            ++readers_;
        }
        char buffer[65536];
        ssize_t n;
        do {
            n = ::read(fd, buffer, sizeof buffer);
        } while (n < 0 && errno == EINTR);
        std::lock_guard lock(mutex_);
        --readers_;
        if (closed_ && readers_ == 0 && fd_ >= 0) {
            ::close(fd_);
            fd_ = -1;
        }
        return n > 0 ? QByteArray(buffer, static_cast<qsizetype>(n)) : QByteArray();
    }
    void close()
    {
        std::lock_guard lock(mutex_);
        if (fd_ < 0 || closed_)
            return;
        closed_ = true;
        if (readers_ == 0) {
            ::close(fd_);
            fd_ = -1;
            return;
        }
        const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (null >= 0) {
            ::dup3(null, fd_, O_CLOEXEC);
            ::close(null);
        }
    }

private:
    std::mutex mutex_;
    int fd_ = -1;
    int readers_ = 0;
    bool closed_ = false;
};

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe()
{
    int fds[2];
    // Close-on-exec: a child started by another thread must not inherit our ends, or the
    // end of stream would never come.
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw fnd::PlatformException(QStringLiteral("NSFileHandleOperationException"),
            QStringLiteral("Unable to create a pipe: %1").arg(QString::fromUtf8(std::strerror(errno))));
    return {fds[0], fds[1]};
}

int statusFromWait(int status)
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        return WTERMSIG(status);
    return status;
}

} // namespace

struct VLChildProcess::State {
    std::optional<Environment> environment;
    Stream input = Stream::Inherit;
    Stream output = Stream::Inherit;
    Stream error = Stream::Inherit;

    std::mutex mutex; // guards the process fields below
    pid_t pid = 0;
    bool launched = false;
    bool reaped = false;
    int status = -1;

    int inputWrite = -1; // our end of the child's standard input, kept until we go
    PipeEnd outputRead;
    PipeEnd errorRead;

    // Collects the child if it has exited. Needs `mutex`.
    void reapLocked()
    {
        if (!launched || reaped)
            return;
        int raw = 0;
        pid_t r;
        do {
            r = ::waitpid(pid, &raw, WNOHANG);
        } while (r < 0 && errno == EINTR);
        if (r == pid) {
            reaped = true;
            status = statusFromWait(raw);
        } else if (r < 0 && errno == ECHILD) {
            // Collected by someone else (a process-wide SIGCHLD handler): gone, status unknown.
            reaped = true;
        }
    }
};

VLChildProcess::VLChildProcess(QString launchPath, QStringList arguments)
    : launchPath_(std::move(launchPath)), arguments_(std::move(arguments)), state_(std::make_unique<State>())
{
}

VLChildProcess::~VLChildProcess()
{
    if (state_->inputWrite >= 0)
        ::close(state_->inputWrite);
    std::lock_guard lock(state_->mutex);
    state_->reapLocked();
    if (state_->launched && !state_->reaped) {
        // Nobody waits for this child any more; collect it when it ends so no zombie stays.
        std::thread([pid = state_->pid] {
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
        }).detach();
    }
}

void VLChildProcess::setEnvironment(const Environment& environment) { state_->environment = environment; }
void VLChildProcess::setStandardInput(Stream stream) { state_->input = stream; }
void VLChildProcess::setStandardOutput(Stream stream) { state_->output = stream; }
void VLChildProcess::setStandardError(Stream stream) { state_->error = stream; }

qint64 VLChildProcess::processIdentifier() const
{
    std::lock_guard lock(state_->mutex);
    return state_->pid;
}

namespace {

// Everything posix_spawn needs, released in one place whatever happens.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    std::vector<int> childEnds; // our copies of the ends the child keeps; closed after spawn
    std::vector<int> ourEnds;   // closed only when the spawn fails

    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        // The child starts with no blocked signals and default dispositions for the signals
        // a tool relies on, whatever this process has set up for itself.
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        sigset_t defaults;
        sigemptyset(&defaults);
        for (int signal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD})
            sigaddset(&defaults, signal);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        for (int fd : childEnds)
            ::close(fd);
    }
    void failed()
    {
        for (int fd : ourEnds)
            ::close(fd);
    }
    // Wires descriptor `target` of the child; returns our end of a pipe, or -1.
    int wire(int target, VLChildProcess::Stream stream)
    {
        switch (stream) {
        case VLChildProcess::Stream::Inherit:
            return -1;
        case VLChildProcess::Stream::Null:
            posix_spawn_file_actions_addopen(&actions, target, "/dev/null", target == 0 ? O_RDONLY : O_WRONLY, 0);
            return -1;
        case VLChildProcess::Stream::Pipe:
            break;
        }
        const Pipe pipe = makePipe();
        const int childEnd = target == 0 ? pipe.read : pipe.write;
        const int ourEnd = target == 0 ? pipe.write : pipe.read;
        childEnds.push_back(childEnd);
        ourEnds.push_back(ourEnd);
        posix_spawn_file_actions_adddup2(&actions, childEnd, target);
        return ourEnd;
    }
};

QString launchFailureReason(int error)
{
    if (error == ENOENT || error == EACCES || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG)
        return QStringLiteral("launch path not accessible");
    return QStringLiteral("Couldn't start the task: %1").arg(QString::fromUtf8(std::strerror(error)));
}

} // namespace

void VLChildProcess::launch()
{
    {
        std::lock_guard lock(state_->mutex);
        if (state_->launched)
            throw fnd::PlatformException(QStringLiteral("NSInvalidArgumentException"), QStringLiteral("task already launched"));
    }
    const QByteArray path = QFile::encodeName(launchPath_);
    if (path.isEmpty())
        throw fnd::PlatformException(QStringLiteral("NSInvalidArgumentException"), QStringLiteral("launch path not accessible"));

    std::vector<QByteArray> storage;
    storage.push_back(path);
    for (const QString& argument : arguments_)
        storage.push_back(argument.toUtf8());
    std::vector<char*> argv;
    for (QByteArray& item : storage)
        argv.push_back(item.data());
    argv.push_back(nullptr);

    std::vector<QByteArray> environmentStorage;
    std::vector<char*> envp;
    if (state_->environment) {
        for (auto it = state_->environment->cbegin(); it != state_->environment->cend(); ++it)
            environmentStorage.push_back((it.key() + QLatin1Char('=') + it.value()).toUtf8());
        for (QByteArray& item : environmentStorage)
            envp.push_back(item.data());
        envp.push_back(nullptr);
    }

    SpawnSetup setup;
    const int inputWrite = setup.wire(0, state_->input);
    const int outputRead = setup.wire(1, state_->output);
    const int errorRead = setup.wire(2, state_->error);

    pid_t pid = 0;
    const int error = ::posix_spawn(&pid, path.constData(), &setup.actions, &setup.attributes, argv.data(),
        state_->environment ? envp.data() : environ);
    if (error != 0) {
        setup.failed();
        throw fnd::PlatformException(QStringLiteral("NSInvalidArgumentException"), launchFailureReason(error));
    }
    state_->inputWrite = inputWrite;
    state_->outputRead.adopt(outputRead);
    state_->errorRead.adopt(errorRead);
    std::lock_guard lock(state_->mutex);
    state_->pid = pid;
    state_->launched = true;
}

QByteArray VLChildProcess::readAvailableOutput() { return state_->outputRead.readAvailable(); }
QByteArray VLChildProcess::readAvailableError() { return state_->errorRead.readAvailable(); }
void VLChildProcess::closeOutput() { state_->outputRead.close(); }
void VLChildProcess::closeError() { state_->errorRead.close(); }

bool VLChildProcess::isRunning()
{
    std::lock_guard lock(state_->mutex);
    state_->reapLocked();
    return state_->launched && !state_->reaped;
}

void VLChildProcess::waitUntilExit()
{
    pid_t pid;
    {
        std::lock_guard lock(state_->mutex);
        state_->reapLocked();
        if (!state_->launched || state_->reaped)
            return;
        pid = state_->pid;
    }
    // Wait without collecting, so other threads may ask about the child meanwhile; the
    // zombie keeps the pid ours until reapLocked collects it.
    siginfo_t info;
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
    }
    std::lock_guard lock(state_->mutex);
    state_->reapLocked();
}

int VLChildProcess::terminationStatus()
{
    std::lock_guard lock(state_->mutex);
    state_->reapLocked();
    return state_->reaped ? state_->status : -1;
}

void VLChildProcess::terminate()
{
    std::lock_guard lock(state_->mutex);
    state_->reapLocked();
    if (state_->launched && !state_->reaped)
        ::kill(state_->pid, SIGTERM);
}

std::shared_ptr<VLChildProcess> VLTaskRef::get() const
{
    std::lock_guard lock(mutex_);
    return child_;
}

void VLTaskRef::set(std::shared_ptr<VLChildProcess> child)
{
    std::lock_guard lock(mutex_);
    child_ = std::move(child);
}
