#include "ExceptionGuard.h"

#include "discovery/Network.h"
#include "platform/system/MainThread.h"
#include "shared/VLException.h"
#include "shared/VLLog.h"
#include "shared/VLTaskNotification.h"

#include <cstdio>
#include <cstdlib>

namespace guard {

void finishAfterException(bool hasGUI, const QString& loggedText)
{
    if (hasGUI)
        return;
    VLTaskNotification::postTaskErrorString(loggedText);
    VLTaskNotification::postTaskFinished();
    discovery::stopNetworkThreads();
    VLLog::finishWriting();
    std::fflush(nullptr);
    // On the main thread the ordinary exit runs the process's exit hooks. A worker thread
    // must not run static destructors under the feet of the threads still working, so it
    // ends the process at once, after the log and the standard streams were drained above.
    if (sys::isMainThread())
        std::exit(1);
    std::_Exit(1);
}

void reportException(bool hasGUI, const char* method, const fnd::PlatformException& e)
{
    finishAfterException(hasGUI, VLException::logException(QString::fromUtf8(method), e));
}

void reportException(bool hasGUI, const char* method, const std::exception& e)
{
    finishAfterException(hasGUI, VLException::logException(QString::fromUtf8(method), e));
}

} // namespace guard
