#pragma once
// Helpers of the file-operation benchmarks: a large file of incompressible bytes in the
// temporary folder, wall-clock timing of work in a child process with its peak memory, and
// timing of reference command-line tools. Single-threaded; benchmarks only.

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QString>
#include <QStringList>

#include <functional>
#include <unistd.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace bench {

struct ChildRun {
    double seconds = 0;
    double peakMiB = 0;
    bool ok = false;
};

// Bytes to use: VELMORA_BENCH_BYTES when set (quick runs), else 1 GiB.
inline qint64 benchBytes()
{
    const qint64 fromEnv = qEnvironmentVariable("VELMORA_BENCH_BYTES").toLongLong();
    return fromEnv > 0 ? fromEnv : (qint64(1) << 30);
}

inline QString sizeLabel(qint64 bytes)
{
    if (bytes % (qint64(1) << 30) == 0)
        return QStringLiteral("%1GiB").arg(bytes >> 30);
    return QStringLiteral("%1MiB").arg(double(bytes) / 1048576.0, 0, 'f', 0);
}

inline QString makeRandomFile(const QString& name, qint64 size)
{
    const QString path = QDir::temp().filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return QString();
    QByteArray block(1 << 20, Qt::Uninitialized);
    QRandomGenerator generator(20261121);
    for (qint64 written = 0; written < size;) {
        generator.fillRange(reinterpret_cast<quint32*>(block.data()), block.size() / 4);
        const qint64 chunk = std::min<qint64>(block.size(), size - written);
        if (file.write(block.constData(), chunk) != chunk)
            return QString();
        written += chunk;
    }
    return path;
}

// Runs `work` in a forked child (exit status 0 = success) and measures its wall time and peak
// resident memory on its own, away from whatever this process has allocated.
inline ChildRun runInChild(const std::function<bool()>& work)
{
    ChildRun run;
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = ::fork();
    if (pid == 0)
        ::_exit(work() ? 0 : 1);
    int status = 0;
    struct rusage usage {};
    if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid)
        return run;
    run.seconds = double(timer.nsecsElapsed()) / 1e9;
    run.peakMiB = double(usage.ru_maxrss) / 1024.0;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

// Wall time of a command line tool; -1 when it fails.
inline double timeTool(const QString& program, const QStringList& arguments, QByteArray* output = nullptr)
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return -1;
    if (output)
        *output = process.readAllStandardOutput();
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace bench
