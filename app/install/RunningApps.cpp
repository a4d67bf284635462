// Quitting running applications before their files are replaced. On this platform an
// application is a process running from X.app/Contents/MacOS/, and the polite quit is SIGTERM
// to the processes of that one bundle path: no script text is ever built, so no application
// name (quotes, backslashes, line breaks) can change what is asked, and only the copy at the
// given path is asked, never a same-named copy elsewhere.

#include "AppController.h"
#include "platform/system/Bundle.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

void AppController::closeAppWithPath(const QString& path)
{
    for (const sys::RunningApplication& app : sys::launchedApplications()) {
        if (app.path != path)
            continue;
        VLLog::appendLog(QStringLiteral("Asking %@ to quit..."), app.name);
        sys::sendTerminate(app.path);
        return;
    }
}

// Every running vendor application whose bundle names `groupID` as its VLGroupID is asked to
// quit. The bundle is read from the running application's own path, so an application is
// found whether or not this process opened its bundle before.
void AppController::closeAppsWithGroupID(const QString& groupID)
{
    for (const sys::RunningApplication& app : sys::launchedApplications()) {
        if (!app.identifier.startsWith(QStringLiteral("com.velmora"), Qt::CaseInsensitive))
            continue;
        const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(app.path);
        if (!bundle || bundle->objectForInfoDictionaryKey(QStringLiteral("VLGroupID")).toString() != groupID)
            continue;
        VLLog::appendLog(QStringLiteral("Asking %@ to quit..."), bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleExecutable")));
        sys::sendTerminate(app.path);
    }
}

void AppController::closeConflictingApps()
{
    VLTaskEx::runTask(sys::rooted(QStringLiteral("/usr/bin/killall")), {QStringLiteral("System Preferences")});
}

// A Qt application on this platform is a regular foreground application from its start:
// there is no background-only state to leave. What remains of bringing it forward is to raise
// its windows and ask the desktop to activate it.
void AppController::showDockIcon()
{
    ui().activateApplication();
}
