#pragma once
// captureStdout: runs `work` with file descriptor 1 pointed at a temporary file and returns
// what was written there (C stdio is flushed around it). Main thread, one test at a time.

#include <QByteArray>
#include <QFile>
#include <QTemporaryFile>

#include <cstdio>
#include <functional>
#include <unistd.h>

namespace vltest {

inline QByteArray captureStdout(const std::function<void()>& work)
{
    QTemporaryFile sink;
    if (!sink.open())
        return QByteArray("<capture failed>");
    std::fflush(stdout);
    const int saved = ::dup(1);
    ::dup2(sink.handle(), 1);
    work();
    std::fflush(stdout);
    ::dup2(saved, 1);
    ::close(saved);
    QFile written(sink.fileName());
    return written.open(QIODevice::ReadOnly) ? written.readAll() : QByteArray();
}

} // namespace vltest
