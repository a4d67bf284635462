#include "support/ChildProcess.h"

#include <QDeadlineTimer>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace vltest {

namespace {

void closeFd(int& fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// NUL-terminated copies of `texts` and the pointer array execve wants, built before fork:
// the child may only make async-signal-safe calls.
struct CStrings {
    explicit CStrings(const QStringList& texts)
    {
        for (const QString& text : texts)
            storage.push_back(QFile::encodeName(text));
        for (QByteArray& s : storage)
            pointers.push_back(s.data());
        pointers.push_back(nullptr);
    }
    std::vector<QByteArray> storage;
    std::vector<char*> pointers;
};

// The descriptors the child gets as 0, 1 and 2, and our ends of its pipes.
struct Wiring {
    int child[3] = {-1, -1, -1};
    int ours[3] = {-1, -1, -1};
    ~Wiring()
    {
        for (int& fd : child)
            closeFd(fd);
    }
    bool pipeFor(int stream)
    {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0)
            return false;
        child[stream] = stream == 0 ? fds[0] : fds[1];
        ours[stream] = stream == 0 ? fds[1] : fds[0];
        ::fcntl(ours[stream], F_SETFL, O_NONBLOCK);
        return true;
    }
    bool fileFor(int stream, const QString& path, int flags)
    {
        child[stream] = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, 0644);
        return child[stream] >= 0;
    }
};

[[noreturn]] void execChild(const Wiring& wiring, const ChildOptions& options, const QByteArray& folder,
    const CStrings& argv, const CStrings* envp, int statusFd)
{
    if (options.endsWithParent)
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (int stream = 0; stream < 3; ++stream)
        if (wiring.child[stream] >= 0 && ::dup2(wiring.child[stream], stream) < 0)
            ::_exit(127);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
    int error = 0;
    if (!folder.isEmpty() && ::chdir(folder.constData()) != 0)
        error = errno;
    if (!error && options.uid && (::setgroups(0, nullptr) != 0 || ::setgid(*options.uid) != 0 || ::setuid(*options.uid) != 0))
        error = errno;
    if (!error) {
        ::execve(argv.pointers[0], argv.pointers.data(), envp ? envp->pointers.data() : environ);
        error = errno;
    }
    [[maybe_unused]] const ssize_t n = ::write(statusFd, &error, sizeof error);
    ::_exit(127);
}

} // namespace

ChildProcess::~ChildProcess()
{
    if (pid_ > 0 && !ended_) {
        ::kill(pid_, SIGKILL);
        reap(true);
    }
    closeAll();
}

bool ChildProcess::start(const QString& program, const QStringList& arguments, const ChildOptions& options)
{
    if (pid_ > 0) {
        error_ = QStringLiteral("already started");
        return false;
    }
    // Writing to a child that has gone must fail, not end the test.
    ::signal(SIGPIPE, SIG_IGN);
    Wiring wiring;
    // Standard output and error go to their file, to the null device, or through a pipe to us.
    const auto output = [&](int stream, const QString& file) {
        if (!file.isEmpty())
            return wiring.fileFor(stream, file, O_WRONLY | O_CREAT | O_TRUNC);
        return options.discardOutput ? wiring.fileFor(stream, QStringLiteral("/dev/null"), O_WRONLY) : wiring.pipeFor(stream);
    };
    const bool inputPipe = options.keepInputOpen || !options.standardInput.isEmpty();
    const bool wired = (inputPipe ? wiring.pipeFor(0) : wiring.fileFor(0, QStringLiteral("/dev/null"), O_RDONLY))
        && output(1, options.standardOutputFile) && output(2, options.standardErrorFile);
    int status[2];
    if (!wired || ::pipe2(status, O_CLOEXEC) != 0) {
        for (int& fd : wiring.ours)
            closeFd(fd);
        error_ = QStringLiteral("cannot make the child's pipes: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    const CStrings argv(QStringList{program} + arguments);
    std::optional<CStrings> envp;
    if (options.environment)
        envp.emplace(*options.environment);
    const QByteArray folder = QFile::encodeName(options.workingDirectory);

    const pid_t pid = ::fork();
    if (pid == 0)
        execChild(wiring, options, folder, argv, envp ? &*envp : nullptr, status[1]);
    ::close(status[1]);
    if (pid < 0) {
        ::close(status[0]);
        for (int& fd : wiring.ours)
            closeFd(fd);
        error_ = QStringLiteral("fork failed");
        return false;
    }
    pid_ = pid;
    inFd_ = wiring.ours[0];
    pendingInput_ = options.standardInput;
    keepInputOpen_ = options.keepInputOpen;
    outFd_ = wiring.ours[1];
    errFd_ = wiring.ours[2];
    int childError = 0;
    ssize_t n;
    do {
        n = ::read(status[0], &childError, sizeof childError);
    } while (n < 0 && errno == EINTR);
    ::close(status[0]);
    if (n > 0) {
        reap(true);
        closeAll();
        error_ = QStringLiteral("cannot run %1: %2").arg(program, QString::fromLocal8Bit(std::strerror(childError)));
        return false;
    }
    return true;
}

void ChildProcess::closeAll()
{
    closeFd(inFd_);
    closeFd(outFd_);
    closeFd(errFd_);
}

void ChildProcess::reap(bool block)
{
    if (pid_ <= 0 || ended_)
        return;
    int raw = 0;
    pid_t r;
    do {
        r = ::waitpid(pid_, &raw, block ? 0 : WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r != pid_)
        return;
    ended_ = true;
    if (WIFSIGNALED(raw))
        signal_ = WTERMSIG(raw);
    else
        exitCode_ = WEXITSTATUS(raw);
}

bool ChildProcess::pump(int timeoutMs)
{
    pollfd fds[3];
    nfds_t count = 0;
    if (inFd_ >= 0 && !pendingInput_.isEmpty())
        fds[count++] = {inFd_, POLLOUT, 0};
    if (outFd_ >= 0)
        fds[count++] = {outFd_, POLLIN, 0};
    if (errFd_ >= 0)
        fds[count++] = {errFd_, POLLIN, 0};
    if (::poll(fds, count, timeoutMs) <= 0)
        return false;
    bool progressed = false;
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].revents == 0)
            continue;
        progressed = true;
        if (fds[i].fd == inFd_) {
            const ssize_t n = ::write(inFd_, pendingInput_.constData(), size_t(pendingInput_.size()));
            if (n > 0)
                pendingInput_.remove(0, n);
            if ((n < 0 && errno != EAGAIN && errno != EINTR) || (pendingInput_.isEmpty() && !keepInputOpen_))
                closeFd(inFd_);
            continue;
        }
        int& fd = fds[i].fd == outFd_ ? outFd_ : errFd_;
        QByteArray& sink = fds[i].fd == outFd_ ? output_ : errorOutput_;
        char buffer[65536];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0)
            sink.append(buffer, n);
        else if (n == 0 || (errno != EAGAIN && errno != EINTR))
            closeFd(fd);
    }
    return progressed;
}

bool ChildProcess::isRunning()
{
    reap(false);
    return pid_ > 0 && !ended_;
}

bool ChildProcess::waitForFinished(int timeoutMs)
{
    if (pid_ <= 0)
        return false;
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        reap(false);
        if (ended_) {
            // What it wrote before it ended is still in the pipes; a grandchild may hold them
            // open, so take what is there without waiting for their end.
            while (pump(0)) {
            }
            return true;
        }
        if (deadline.hasExpired())
            return false;
        pump(int(qMin<qint64>(deadline.remainingTime(), 20)));
    }
}

std::optional<QByteArray> ChildProcess::readLine(int timeoutMs)
{
    if (!waitUntil([this] { return output_.indexOf('\n', lineStart_) >= 0; }, timeoutMs))
        return std::nullopt;
    const qsizetype end = output_.indexOf('\n', lineStart_);
    QByteArray line = output_.mid(lineStart_, end - lineStart_);
    lineStart_ = end + 1;
    return line;
}

bool ChildProcess::waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        if (done())
            return true;
        reap(false);
        if (outFd_ < 0 || deadline.hasExpired() || (ended_ && !pump(0)))
            return done();
        pump(int(qMin<qint64>(deadline.remainingTime(), 20)));
    }
}

void ChildProcess::terminate()
{
    if (isRunning())
        ::kill(pid_, SIGTERM);
}

void ChildProcess::kill()
{
    if (isRunning())
        ::kill(pid_, SIGKILL);
}

void ChildProcess::closeInput() { closeFd(inFd_); }

bool runToSuccess(const QString& program, const QStringList& arguments, int timeoutMs)
{
    ChildProcess child;
    return child.start(program, arguments) && child.waitForFinished(timeoutMs) && !child.crashed()
        && child.exitCode() == 0;
}

} // namespace vltest
