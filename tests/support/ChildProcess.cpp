#include "support/ChildProcess.h"

#include <QDeadlineTimer>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/mman.h>
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

// The descriptors the child gets as 0, 1 and 2 and our ends of its pipes; -1 where it failed.
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
        child[stream] = fds[stream == 0 ? 0 : 1];
        ours[stream] = fds[stream == 0 ? 1 : 0];
        return stream == 0 || ::fcntl(ours[stream], F_SETFL, O_NONBLOCK) == 0;
    }
    bool fileFor(int stream, const QString& path, int flags)
    {
        return (child[stream] = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, 0644)) >= 0;
    }
    // Standard input holding `data` and then ending: an anonymous file, whatever its size.
    bool contentFor(const QByteArray& data)
    {
        child[0] = ::memfd_create("stdin", MFD_CLOEXEC);
        return child[0] >= 0 && ::write(child[0], data.constData(), size_t(data.size())) == data.size()
            && ::lseek(child[0], 0, SEEK_SET) == 0;
    }
    bool output(int stream, const QString& file, bool discard)
    {
        if (!file.isEmpty())
            return fileFor(stream, file, O_WRONLY | O_CREAT | O_TRUNC);
        return discard ? fileFor(stream, QStringLiteral("/dev/null"), O_WRONLY) : pipeFor(stream);
    }
};

[[noreturn]] void execChild(const Wiring& wiring, const ChildOptions& options, const QByteArray& folder,
    const CStrings& argv, const CStrings* envp, int statusFd)
{
    if (options.endsWithParent)
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (int stream = 0; stream < 3; ++stream)
        if (::dup2(wiring.child[stream], stream) < 0)
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
    kill();
    reap(true);
    closeAll();
}

void ChildProcess::closeAll()
{
    closeFd(inFd_);
    for (int& fd : outFds_)
        closeFd(fd);
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
    const bool input = options.keepInputOpen ? wiring.pipeFor(0)
        : options.standardInput.isEmpty()    ? wiring.fileFor(0, QStringLiteral("/dev/null"), O_RDONLY)
                                             : wiring.contentFor(options.standardInput);
    int status[2] = {-1, -1};
    if (!input || !wiring.output(1, options.standardOutputFile, options.discardOutput)
        || !wiring.output(2, options.standardErrorFile, options.discardOutput) || ::pipe2(status, O_CLOEXEC) != 0) {
        for (int& fd : wiring.ours)
            closeFd(fd);
        error_ = QStringLiteral("cannot make the child's pipes: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    const CStrings argv(QStringList{program} + arguments);
    std::optional<CStrings> envp;
    if (options.environment)
        envp.emplace(*options.environment);
    const pid_t pid = ::fork();
    if (pid == 0)
        execChild(wiring, options, QFile::encodeName(options.workingDirectory), argv, envp ? &*envp : nullptr, status[1]);
    ::close(status[1]);
    inFd_ = wiring.ours[0];
    outFds_[0] = wiring.ours[1];
    outFds_[1] = wiring.ours[2];
    pid_ = std::max(pid, 0);
    int childError = 0;
    ssize_t n = -1;
    while (pid > 0 && (n = ::read(status[0], &childError, sizeof childError)) < 0 && errno == EINTR) {
    }
    ::close(status[0]);
    if (pid > 0 && n == 0)
        return true;
    reap(true);
    closeAll();
    error_ = pid < 0 ? QStringLiteral("fork failed")
                     : QStringLiteral("cannot run %1: %2").arg(program, QString::fromLocal8Bit(std::strerror(childError)));
    return false;
}

void ChildProcess::reap(bool block)
{
    if (pid_ <= 0 || ended_)
        return;
    int raw = 0;
    pid_t r;
    while ((r = ::waitpid(pid_, &raw, block ? 0 : WNOHANG)) < 0 && errno == EINTR) {
    }
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
    pollfd fds[2];
    nfds_t count = 0;
    for (const int fd : outFds_)
        if (fd >= 0)
            fds[count++] = {fd, POLLIN, 0};
    if (count == 0 || ::poll(fds, count, timeoutMs) <= 0)
        return false;
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].revents == 0)
            continue;
        const int stream = fds[i].fd == outFds_[0] ? 0 : 1;
        char buffer[65536];
        const ssize_t n = ::read(outFds_[stream], buffer, sizeof buffer);
        if (n > 0)
            output_[stream].append(buffer, n);
        else if (n == 0 || (errno != EAGAIN && errno != EINTR))
            closeFd(outFds_[stream]);
    }
    return true;
}

bool ChildProcess::isRunning()
{
    reap(false);
    return pid_ > 0 && !ended_;
}

bool ChildProcess::waitForFinished(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (isRunning() && !deadline.hasExpired())
        pump(int(qMin<qint64>(deadline.remainingTime(), 20)));
    // What it wrote before it ended is still in the pipes; a grandchild may hold them open, so
    // take what is there without waiting for their end.
    while (ended_ && pump(0)) {
    }
    return ended_;
}

std::optional<QByteArray> ChildProcess::readLine(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    qsizetype end;
    while ((end = output_[0].indexOf('\n', lineStart_)) < 0) {
        reap(false);
        if (outFds_[0] < 0 || deadline.hasExpired() || (ended_ && !pump(0)))
            return std::nullopt;
        pump(int(qMin<qint64>(deadline.remainingTime(), 20)));
    }
    QByteArray line = output_[0].mid(lineStart_, end - lineStart_);
    lineStart_ = end + 1;
    return line;
}

void ChildProcess::signal(int number)
{
    if (isRunning())
        ::kill(pid_, number);
}

void ChildProcess::closeInput() { closeFd(inFd_); }

bool runToSuccess(const QString& program, const QStringList& arguments, int timeoutMs)
{
    ChildProcess child;
    return child.start(program, arguments) && child.waitForFinished(timeoutMs) && child.exitCode() == 0;
}

} // namespace vltest
