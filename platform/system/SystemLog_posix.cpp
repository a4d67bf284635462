// The system log on POSIX systems: standard error plus syslog. A mutex keeps concurrent
// lines whole on standard error; syslog is itself thread-safe.

#include "platform/system/SystemLog.h"

#include <QDateTime>

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <syslog.h>
#include <unistd.h>

namespace sys {

namespace {

// The process name as the platform reports it: the last component of argv[0], whatever
// display name the application object was given.
QString processName()
{
    return QString::fromLocal8Bit(program_invocation_short_name);
}

} // namespace

void nsLogText(const QString& text)
{
    static std::mutex mutex;
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss.zzz"));
    const QByteArray line = (stamp + QLatin1Char(' ') + processName() + QLatin1Char('[')
                             + QString::number(getpid()) + QStringLiteral("] ") + text + QLatin1Char('\n'))
                                .toUtf8();
    const QByteArray message = text.toUtf8();
    std::lock_guard lock(mutex);
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
    syslog(LOG_USER | LOG_NOTICE, "%s", message.constData());
}

} // namespace sys
