// This process's threads from /proc/self/task: one folder per thread, named by its kernel
// id, holding the thread's name in "comm". A thread's folder goes when the thread is gone
// for good, after everything it ran at its end.

#include "platform/system/ProcessThreads.h"

#include <QDir>
#include <QFile>

#include <pthread.h>
#include <thread>

namespace sys {
namespace {

// The kernel's limit for a thread name, less its terminating NUL.
constexpr qsizetype kThreadNameBytes = 15;

// A function, not a static object: a thread may still end during the process's exit.
QString taskPath(const QString& entry)
{
    return QStringLiteral("/proc/self/task/") + entry;
}

bool threadExists(pid_t thread)
{
    return QFile::exists(taskPath(QString::number(thread)));
}

} // namespace

QList<pid_t> threadsNamed(const QByteArray& name)
{
    const QByteArray wanted = name.left(kThreadNameBytes);
    QList<pid_t> found;
    const QStringList entries = QDir(taskPath(QString())).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& entry : entries) {
        bool numeric = false;
        const pid_t thread = pid_t(entry.toInt(&numeric));
        if (!numeric)
            continue;
        QFile comm(taskPath(entry) + QStringLiteral("/comm"));
        // A thread that ended since the list was read has no name to read: it is skipped.
        if (comm.open(QIODevice::ReadOnly) && comm.readAll().trimmed() == wanted)
            found.append(thread);
    }
    return found;
}

void setCurrentThreadName(const QByteArray& name)
{
    pthread_setname_np(pthread_self(), name.left(kThreadNameBytes).constData());
}

bool waitUntilOneEnds(const QList<pid_t>& threads, std::chrono::milliseconds limit)
{
    if (threads.isEmpty())
        return true;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        for (const pid_t thread : threads) {
            if (!threadExists(thread))
                return true;
        }
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        // An ending thread has only its last clean-up left: a short poll is enough.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace sys
