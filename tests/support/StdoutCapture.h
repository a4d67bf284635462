#pragma once
// captureOutput: runs `work` with file descriptor `fd` (1 standard output, 2 standard error)
// pointed at a temporary file and returns what was written there (C stdio is flushed around
// it). Main thread, one test at a time. Programs run as children keep their own output
// (ChildProcess, Sandbox::run).

#include <QByteArray>
#include <QFile>
#include <QTemporaryFile>

#include <cstdio>
#include <functional>
#include <unistd.h>

namespace vltest {

inline QByteArray captureOutput(int fd, const std::function<void()>& work)
{
    QTemporaryFile sink;
    if (!sink.open())
        return QByteArray("<capture failed>");
    std::fflush(nullptr);
    const int saved = ::dup(fd);
    ::dup2(sink.handle(), fd);
    work();
    std::fflush(nullptr);
    ::dup2(saved, fd);
    ::close(saved);
    QFile written(sink.fileName());
    return written.open(QIODevice::ReadOnly) ? written.readAll() : QByteArray();
}

inline QByteArray captureStdout(const std::function<void()>& work) { return captureOutput(1, work); }

} // namespace vltest
