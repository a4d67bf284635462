// PrivilegedToolRunner: runs system tools, with the rights it was started with, for the one
// process that started it through pkexec. VLAuthorization starts it at the first authorisation
// and keeps it for the rest of the process, so the user is asked once per process.
//
// It takes requests only on its standard input, which must be one end of a private socket pair
// (its standard output is the same socket): nobody but the parent holds the other end. It runs
// only absolute tool paths, with argument vectors, never through a shell, and it ends as soon
// as its input reaches end of file, that is when the parent ends or lets it go, however the
// parent ended (a parent-death signal is not used: it follows the parent *thread*, and the
// first authorisation may come from a worker thread that ends long before the process).
// The conversation is described in shared/VLAuthorizationProtocol.h.
//
// Deliberately small and free of Qt: it runs as root.

#include "shared/VLAuthorizationProtocol.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

constexpr int kRequests = 0; // standard input
constexpr int kAnswers = 1;  // standard output, the same socket

sigset_t waitMask; // the signal mask while waiting: SIGCHLD let through
std::string inbound;
std::set<pid_t> started; // children of "start" requests, collected as they end

void onChild(int) {}

bool isOurSocket()
{
    struct stat in {}, out {};
    if (::fstat(kRequests, &in) != 0 || ::fstat(kAnswers, &out) != 0)
        return false;
    return S_ISSOCK(in.st_mode) && in.st_dev == out.st_dev && in.st_ino == out.st_ino;
}

void setUpSignals()
{
    std::signal(SIGPIPE, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = onChild;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGCHLD, &action, nullptr);
    // SIGCHLD stays blocked except inside ppoll, so an exit between a check and the wait is
    // never missed.
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &child, &waitMask);
    sigdelset(&waitMask, SIGCHLD);
}

void collectStarted()
{
    for (auto it = started.begin(); it != started.end();) {
        pid_t r;
        do {
            r = ::waitpid(*it, nullptr, WNOHANG);
        } while (r < 0 && errno == EINTR);
        it = r == 0 ? std::next(it) : started.erase(it);
    }
}

// Waits until the parent has written something (true) or a child has ended (false). Reads what
// there is into `inbound`; end of file or a broken socket ends the runner: the parent is gone.
bool waitForInput()
{
    pollfd watch{kRequests, POLLIN, 0};
    if (::ppoll(&watch, 1, nullptr, &waitMask) < 0) {
        if (errno == EINTR)
            return false;
        std::_Exit(1);
    }
    char chunk[65536];
    ssize_t n;
    do {
        n = ::read(kRequests, chunk, sizeof chunk);
    } while (n < 0 && errno == EINTR);
    if (n <= 0)
        std::_Exit(0);
    inbound.append(chunk, std::size_t(n));
    return true;
}

// The next request, or nothing when the input is malformed.
std::optional<vlauth::Message> nextRequest()
{
    for (;;) {
        const vlauth::Parsed parsed = vlauth::decode(inbound);
        if (parsed.status == vlauth::ParseStatus::Malformed)
            return std::nullopt;
        if (parsed.status == vlauth::ParseStatus::Complete) {
            inbound.erase(0, parsed.consumed);
            return parsed.message;
        }
        if (!waitForInput())
            collectStarted();
    }
}

void answer(const vlauth::Message& message)
{
    const std::string bytes = vlauth::encode(message);
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t n = ::send(kAnswers, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            std::_Exit(0);
        sent += std::size_t(n);
    }
}

// Why a request cannot be run, or "" when it can.
std::string refusalOf(const vlauth::Message& request)
{
    if (request.size() < 2 || (request[0] != "start" && request[0] != "run"))
        return "unknown request";
    if (request[1].empty() || request[1][0] != '/')
        return "the tool path is not absolute";
    for (const std::string& item : request) {
        if (item.find('\0') != std::string::npos)
            return "an argument contains a NUL byte";
    }
    return {};
}

// Starts the tool: input and output on the null device, errors where ours go, the signal
// state of a fresh process. 0 or the error number of the failed start.
int spawnTool(const vlauth::Message& request, pid_t* pid)
{
    std::vector<char*> argv;
    for (std::size_t i = 1; i < request.size(); ++i)
        argv.push_back(const_cast<char*>(request[i].c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : {SIGPIPE, SIGCHLD})
        sigaddset(&defaults, signal);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = ::posix_spawn(pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error;
}

// Waits for the tool of a "run" request while still noticing the parent's end.
int waitForTool(pid_t pid)
{
    for (;;) {
        int raw = 0;
        const pid_t r = ::waitpid(pid, &raw, WNOHANG);
        if (r == pid)
            return WIFSIGNALED(raw) ? 128 + WTERMSIG(raw) : WEXITSTATUS(raw);
        if (r < 0 && errno != EINTR)
            return -1;
        if (r == 0 && !waitForInput())
            collectStarted();
    }
}

void handle(const vlauth::Message& request)
{
    if (const std::string refusal = refusalOf(request); !refusal.empty()) {
        answer({"failed", refusal});
        return;
    }
    pid_t pid = 0;
    if (const int error = spawnTool(request, &pid); error != 0) {
        answer({"failed", std::strerror(error)});
        return;
    }
    if (request[0] == "start") {
        started.insert(pid);
        answer({"started"});
        return;
    }
    answer({"exited", std::to_string(waitForTool(pid))});
}

} // namespace

int main()
{
    if (!isOurSocket()) {
        std::fputs("PrivilegedToolRunner: takes requests only from the process that started it\n", stderr);
        return 2;
    }
    ::close_range(3, ~0U, 0); // nothing but the socket and the error stream reaches the tools
    if (::chdir("/") != 0)
        return 2;
    setUpSignals();
    answer({"ready"});
    while (const std::optional<vlauth::Message> request = nextRequest())
        handle(*request);
    std::fputs("PrivilegedToolRunner: malformed request\n", stderr);
    return 3;
}
