// The privileged tool runner, started through pkexec on a private socket pair.
#include "shared/VLAuthorizationChannel.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

// The runner's socket end on its standard input and output, our signal set-up left behind.
int spawnPkexec(const QByteArray& pkexec, const QByteArray& runner, int runnerEnd, pid_t* pid)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, runnerEnd, 0);
    posix_spawn_file_actions_adddup2(&actions, runnerEnd, 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        sigaddset(&defaults, signal);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    char* argv[] = {const_cast<char*>(pkexec.constData()), const_cast<char*>(runner.constData()), nullptr};
    const int error = ::posix_spawn(pid, pkexec.constData(), &actions, &attributes, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

// The exit status of a child that has ended or is about to; -1 when it cannot be had.
int collect(pid_t pid)
{
    int raw = 0;
    pid_t r;
    do {
        r = ::waitpid(pid, &raw, 0);
    } while (r < 0 && errno == EINTR);
    if (r != pid)
        return -1;
    return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : WEXITSTATUS(raw);
}

} // namespace

QString VLAuthorizationChannel::runnerPath()
{
    const QString executable = QFileInfo(QStringLiteral("/proc/self/exe")).symLinkTarget();
    return QFileInfo(executable).absolutePath() + QStringLiteral("/PrivilegedToolRunner");
}

bool VLAuthorizationChannel::open(const QString& pkexecPath, QString* why)
{
    close();
    int ends[2];
    // Close-on-exec: no other child of ours may hold our end, or the runner would never see
    // end of file when we go.
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        *why = QString::fromUtf8(std::strerror(errno));
        return false;
    }
    const int error = spawnPkexec(QFile::encodeName(pkexecPath), QFile::encodeName(runnerPath()), ends[1], &pkexec_);
    ::close(ends[1]);
    if (error != 0) {
        ::close(ends[0]);
        pkexec_ = 0;
        *why = QString::fromUtf8(std::strerror(error));
        return false;
    }
    socket_ = ends[0];
    const std::optional<vlauth::Message> hello = receive();
    if (hello && *hello == vlauth::Message{"ready"})
        return true;
    const pid_t pkexec = pkexec_;
    pkexec_ = 0;
    close();
    *why = QStringLiteral("%1 ended with status %2").arg(pkexecPath).arg(collect(pkexec));
    return false;
}

void VLAuthorizationChannel::close()
{
    if (socket_ >= 0) {
        ::close(socket_); // the runner reads end of file and ends
        socket_ = -1;
    }
    if (pkexec_ > 0)
        (void)collect(pkexec_);
    pkexec_ = 0;
    inbound_.clear();
}

vlauth::Message VLAuthorizationChannel::run(const QString& toolPath, const QStringList& arguments, bool wait)
{
    if (!isOpen())
        return {};
    vlauth::Message request{wait ? "run" : "start", QFile::encodeName(toolPath).toStdString()};
    for (const QString& argument : arguments)
        request.push_back(argument.toUtf8().toStdString());
    std::optional<vlauth::Message> answer;
    if (send(request))
        answer = receive();
    if (!answer || answer->empty()) {
        close();
        return {};
    }
    return *answer;
}

bool VLAuthorizationChannel::send(const vlauth::Message& message)
{
    const std::string bytes = vlauth::encode(message);
    for (std::size_t sent = 0; sent < bytes.size();) {
        // No SIGPIPE when the runner has gone: the failure is reported instead.
        const ssize_t n = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += std::size_t(n);
    }
    return true;
}

std::optional<vlauth::Message> VLAuthorizationChannel::receive()
{
    for (;;) {
        const vlauth::Parsed parsed = vlauth::decode(inbound_);
        if (parsed.status == vlauth::ParseStatus::Malformed)
            return std::nullopt;
        if (parsed.status == vlauth::ParseStatus::Complete) {
            inbound_.erase(0, parsed.consumed);
            return parsed.message;
        }
        char chunk[4096];
        ssize_t n;
        do {
            n = ::read(socket_, chunk, sizeof chunk);
        } while (n < 0 && errno == EINTR);
        if (n <= 0)
            return std::nullopt;
        inbound_.append(chunk, std::size_t(n));
    }
}
