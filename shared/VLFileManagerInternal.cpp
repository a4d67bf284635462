// Helpers shared by the VLFileManager sources: existence without following links, the console,
// error texts and the polling wait of the time-out forms.
#include "shared/VLFileManagerInternal.h"

#include "platform/system/MainThread.h"
#include "platform/system/SystemLog.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QThread>
#include <QTimer>

#include <cstring>

#include <sys/stat.h>

namespace vlfm {

bool existsNoFollow(const QString& path)
{
    struct stat st {};
    return !path.isEmpty() && ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

void consoleWithArgs(const QString& format, const QList<fnd::FormatArg>& args)
{
    sys::nsLogText(fnd::formatWithArgs(format, args));
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

bool waitForState(const std::function<bool()>& reached, int seconds)
{
    QElapsedTimer elapsed;
    elapsed.start();
    const qint64 limit = qint64(seconds) * 1000;
    const bool pumpEvents = QCoreApplication::instance() && sys::isMainThread();
    while (!reached() && elapsed.elapsed() < limit) {
        if (pumpEvents) {
            // Keep the interface alive: run whatever arrives within the next 10 ms.
            QEventLoop slice;
            QTimer::singleShot(10, &slice, &QEventLoop::quit);
            slice.exec();
        } else {
            QThread::msleep(300);
        }
    }
    return reached();
}

} // namespace vlfm
