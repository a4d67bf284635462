// AppController::isProcessRunning: whether any process of the user runs an executable with
// the given name. No state; any thread.

#include "AppController.h"

#include "platform/system/ProcessList.h"

bool AppController::isProcessRunning(const QString& executableName)
{
    // The whole last path component must equal the name: "/MyTessel" is not "Tessel".
    const QString suffix = QLatin1Char('/') + executableName;
    for (const QString& path : sys::processExecutablePaths()) {
        if (path.endsWith(suffix))
            return true;
    }
    return false;
}
