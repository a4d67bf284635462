// runTool with posix_spawn: the child's descriptors are arranged by file actions, so nothing of
// ours runs between the start and the tool's own code.

#include "platform/system/ToolRun.h"

#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace sys {

namespace {

QString errorText(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

QByteArray readAll(int fd)
{
    QByteArray data;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0)
            data.append(buffer, n);
        else if (n == 0 || errno != EINTR)
            return data;
    }
}

int waitForExit(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Spawns the tool with its error output on errorWrite; returns 0 or the error number.
int spawn(pid_t* pid, const QString& tool, const QStringList& arguments, const QString& workingFolder,
          const QString& outputFile, int errorWrite)
{
    const QByteArray program = QFile::encodeName(tool);
    const QByteArray folder = QFile::encodeName(workingFolder);
    const QByteArray output = outputFile.isEmpty() ? QByteArray("/dev/null") : QFile::encodeName(outputFile);
    std::vector<QByteArray> argumentBytes{program};
    for (const QString& argument : arguments)
        argumentBytes.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& argument : argumentBytes)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, errorWrite, 2);
    if (!workingFolder.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, folder.constData());
    // The tool starts with no signal blocked and a broken pipe ending it, whatever this thread has.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int error = ::posix_spawn(pid, program.constData(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace

ToolRun runTool(const QString& tool, const QStringList& arguments, const QString& workingFolder,
                const QString& outputFile)
{
    ToolRun run;
    int errorPipe[2];
    if (::pipe2(errorPipe, O_CLOEXEC) != 0) {
        run.errors = errorText(errno);
        return run;
    }
    pid_t pid = -1;
    const int error = spawn(&pid, tool, arguments, workingFolder, outputFile, errorPipe[1]);
    ::close(errorPipe[1]);
    if (error != 0) {
        ::close(errorPipe[0]);
        run.errors = errorText(error);
        return run;
    }
    run.started = true;
    run.errors = QString::fromLocal8Bit(readAll(errorPipe[0])).trimmed();
    ::close(errorPipe[0]);
    run.status = waitForExit(pid);
    return run;
}

} // namespace sys
