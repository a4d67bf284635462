// Main-thread calls through Qt's blocking queued invocation on the application object.

#include "platform/system/MainThread.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>

namespace sys {

bool isMainThread()
{
    const QCoreApplication* app = QCoreApplication::instance();
    // Without an application object there is no event loop to hop to: every thread counts
    // as "main" so work runs directly.
    if (!app)
        return true;
    return QThread::currentThread() == app->thread();
}

void runOnMainThreadAndWait(const std::function<void()>& work)
{
    if (!work)
        return;
    QCoreApplication* app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) {
        work();
        return;
    }
    QMetaObject::invokeMethod(app, [&work] { work(); }, Qt::BlockingQueuedConnection);
}

} // namespace sys
