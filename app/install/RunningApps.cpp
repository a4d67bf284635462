// Quitting running applications before their files are replaced. On this platform an
// application is a process running from X.app/Contents/MacOS/, and the polite quit is SIGTERM
// to the processes of that one bundle path: no script text is ever built, so no application
// name (quotes, backslashes, line breaks) can change what is asked, and only the copy at the
// given path is asked, never a same-named copy elsewhere.
//
// Which applications are asked follows the platform's rules and goes no further: quitting
// more than that can end a user's unsaved work. An empty path or group matches nothing.

#include "AppController.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

// Only the application running from exactly `path` (string equality) is asked to quit.
void AppController::closeAppWithPath(const QString& path)
{
    if (path.isEmpty())
        return;
    for (const sys::RunningApplication& app : sys::launchedApplications()) {
        if (app.path != path)
            continue;
        VLLog::appendLog(QStringLiteral("Asking %@ to quit..."), app.name);
        sys::sendTerminate(app.path);
        return;
    }
}

// A running vendor application is asked to quit when its bundle names `groupID` as its
// VLGroupID. The bundle is looked up by identifier among the bundles this process opened by
// path (the Sparkle check, -checkpath), as the platform's lookup does: an application this
// process never opened is not found, and so not quit. A record without "groupid" (the group
// appcast as the server sends it carries "groupID" instead) quits nothing.
void AppController::closeAppsWithGroupID(const QString& groupID)
{
    if (groupID.isEmpty())
        return;
    for (const sys::RunningApplication& app : sys::launchedApplications()) {
        if (!fnd::hasPrefixCaseInsensitive(app.identifier, QStringLiteral("com.velmora")))
            continue;
        const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithIdentifier(app.identifier);
        if (!bundle)
            continue;
        const QVariant group = bundle->objectForInfoDictionaryKey(QStringLiteral("VLGroupID"));
        if (group.typeId() != QMetaType::QString || group.toString() != groupID)
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
