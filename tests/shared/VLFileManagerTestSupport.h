#pragma once
// Test support for the file-operation and authorisation tests: a sandbox whose HOME, TMPDIR
// and system root are the process's own for the test's duration, with the recording fake
// tools installed; and the test files the digest and copy tests read. One test at a time,
// main thread.

#include "support/QtPrinters.h"
#include "support/Sandbox.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>

#include <unistd.h>

namespace vltest {

// A file at `path` holding `data`, or a sparse one of `sparseSize` bytes (no disk space, read
// back as zeros); its path, or "" on failure.
inline QString makeFile(const QString& path, const QByteArray& data, qint64 sparseSize = 0)
{
    QFile f(path);
    const bool made = f.open(QIODevice::WriteOnly) && (sparseSize ? ::ftruncate(f.handle(), sparseSize) == 0 : f.write(data) == data.size());
    return made ? path : QString();
}

// `size` bytes without a short period, so a misplaced chunk changes any digest.
inline QByteArray pattern(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 31) ^ (i >> 11));
    return data;
}

class FileOpsSandboxTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox.isValid());
        ASSERT_TRUE(sandbox.installFakeTools());
        env.set("HOME", sandbox.home());
        env.set("TMPDIR", sandbox.tmp());
        env.set("VELMORA_SYSROOT", sandbox.sysroot());
        env.set("FAKE_TOOL_LOG", sandbox.toolLogPath());
        env.unset("FAKE_PKEXEC_DENY");
    }

    // The calls of `tool` once at least `count` are recorded (privileged runs do not wait for
    // their tools), or what there is after ten seconds.
    QList<QStringList> waitForCalls(const QString& tool, int count = 1) const
    {
        const QDeadlineTimer guard(10000);
        while (sandbox.toolCalls(tool).size() < count && !guard.hasExpired())
            QThread::msleep(20);
        return sandbox.toolCalls(tool);
    }

    bool writeFile(const QString& path, const QByteArray& data = "data") { return sandbox.writeFile(path, data); }
    static QByteArray readFile(const QString& path) { return Sandbox::readFile(path); }

    Sandbox sandbox;
    ScopedEnvironment env;
};

} // namespace vltest
