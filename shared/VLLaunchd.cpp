#include "shared/VLLaunchd.h"

#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/JobService.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/SystemLog.h"
#include "shared/VLAlert.h"
#include "shared/VLAuthorization.h"
#include "shared/VLFileManager.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"

#include <QFileInfo>
#include <QThread>

#include <unistd.h>

namespace {

constexpr int kToolTimeoutSeconds = 10;

QString folderName(bool launchAgent)
{
    return launchAgent ? QStringLiteral("LaunchAgents") : QStringLiteral("LaunchDaemons");
}

QString jobFolder(bool user, bool launchAgent)
{
    return fnd::stringByAppendingPathComponent(VLLocalPaths::libraryDirectory(user), folderName(launchAgent));
}

QString jobFile(const QString& label, bool user, bool launchAgent)
{
    return VLLocalPaths::libraryDirectory(user) + fnd::format(QStringLiteral("/%@/%@.plist"), folderName(launchAgent), label);
}

// A label names a file inside the job folder (and units inside the service manager's folder):
// one that could name anything else is refused before a path is formed.
bool isUsableLabel(const QString& label)
{
    if (!label.isEmpty() && !label.contains(QLatin1Char('/')) && !label.contains(QStringLiteral("..")))
        return true;
    VLLog::appendLog(QStringLiteral("Error: Invalid launchd job label \"%@\". A label must not be empty or contain \"/\" or \"..\"."),
                     label);
    return false;
}

void runTool(const char* tool, const QStringList& arguments)
{
    VLTaskEx::runTaskTimeout(sys::rooted(QLatin1String(tool)), arguments, kToolTimeoutSeconds);
}

sys::JobService jobService()
{
    return sys::JobService([](const QString& path, const QStringList& arguments) {
        VLTaskEx::runTaskTimeout(path, arguments, kToolTimeoutSeconds);
    });
}

sys::JobDomain domainOf(bool user)
{
    return user ? sys::JobDomain::User : sys::JobDomain::Machine;
}

// The job service's own failures (it could not make or find the job's units) go to the log;
// like the platform tool's, they do not change any result.
void logIfFailed(const std::optional<QString>& error)
{
    if (error)
        VLLog::appendLog(QStringLiteral("Error: %@"), *error);
}

QString permissionsText(const QString& folder)
{
    return fnd::format(QStringLiteral("Please check you have correct permissions for the directory %@."), folder);
}

// Owner and mode of a job file with administrator rights; the privileged runs are not waited
// for, hence the pauses.
void setOwnershipWithRights(const QString& file, bool user)
{
    VLAuthorization& authorization = VLAuthorization::sharedController();
    if (!user) {
        (void)authorization.authExecTask(sys::rooted(QStringLiteral("/usr/sbin/chown")),
                                         {sys::JobService::machineJobOwner(), file});
        ::usleep(500);
    }
    (void)authorization.authExecTask(sys::rooted(QStringLiteral("/bin/chmod")), {QStringLiteral("644"), file});
    QThread::sleep(1);
}

// The job file could not be written in place: write it to the temporary folder and move it in,
// with administrator rights when needed. False after the failure has been logged and shown.
bool writeThroughTemporaryFolder(const QVariantMap& settings, const QString& label, const QString& folder,
                                 const QString& file)
{
    const QString temporary = VLLocalPaths::tempDirectory() + fnd::format(QStringLiteral("%@.plist"), label);
    if (!plist::writeXmlFileAtomically(settings, temporary)) {
        VLLog::appendLog(QStringLiteral("Error: Unable to create LaunchAgent. Please check you have correct permissions for the directory %@"),
                         folder);
        sys::nsLog(QStringLiteral("Error: Unable to write LaunchAgent data. Please check you have correct permissions for the directory %@"),
                   folder);
        VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to write LaunchAgent data"),
                                           permissionsText(folder), VLAlert::mainWindow());
        return false;
    }
    if (QFileInfo::exists(file))
        (void)VLFileManager::removeFileTimeout(file, 5);
    VLLog::appendLog(QStringLiteral("Unable to write launchd plist - trying to authorize..."));
    if (!VLFileManager::moveFileTimeout(temporary, file, 10)) {
        const QString text =
            fnd::format(QStringLiteral("Error: Unable to create LaunchAgent. Please check you have correct permissions for the directory %@"), folder);
        VLLog::appendLog(QStringLiteral("%@"), text);
        sys::nsLogText(text);
        VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to create LaunchAgent"), permissionsText(folder),
                                           VLAlert::mainWindow());
        (void)VLFileManager::removeFile(temporary, false);
        return false;
    }
    (void)VLFileManager::removeFileTimeout(temporary, 10);
    return true;
}

// Writes the settings as the job file and gives it its owner and mode.
bool writeJobFile(const QVariantMap& settings, const QString& label, const QString& folder, const QString& file,
                  bool user, bool shouldAuth)
{
    if (plist::writeXmlFileAtomically(settings, file)) {
        if (!shouldAuth) {
            if (!user)
                runTool("/usr/sbin/chown", {sys::JobService::machineJobOwner(), file});
            runTool("/bin/chmod", {QStringLiteral("644"), file});
            return true;
        }
    } else if (!writeThroughTemporaryFolder(settings, label, folder, file)) {
        return false;
    }
    setOwnershipWithRights(file, user);
    return true;
}

} // namespace

bool VLLaunchd::checkJobExists(const QString&, const QVariantMap&, bool, bool)
{
    // The platform compared the settings with the job file's contents only when that file was
    // missing, which never matches: no job is ever found, so every start rewrites and reloads.
    return false;
}

bool VLLaunchd::startLaunchAgent(const QString& label, const QVariantMap& settings, bool user)
{
    return startJob(label, settings, user, true, false, QString());
}

bool VLLaunchd::startJob(const QString& label, const QVariantMap& settings, bool user, bool launchAgent,
                         bool shouldAuth, const QString& killProcessName, bool forceRecreate)
{
    if (!isUsableLabel(label))
        return false;
    const QString folder = jobFolder(user, launchAgent);
    if (!QFileInfo::exists(folder))
        (void)VLFileManager::createDirectory(folder, shouldAuth);
    const QString file = folder + fnd::format(QStringLiteral("/%@.plist"), label);

    if (forceRecreate || !checkJobExists(label, settings, launchAgent, user)) {
        if (QFileInfo::exists(file))
            removeJob(label, user, launchAgent, shouldAuth);
        if (!writeJobFile(settings, label, folder, file, user, shouldAuth))
            return false;
    }

    if (!killProcessName.isEmpty())
        runTool("/usr/bin/killall", {killProcessName});
    const sys::JobService service = jobService();
    logIfFailed(service.unload(file, domainOf(user)));
    logIfFailed(service.load(file, domainOf(user)));
    return true;
}

void VLLaunchd::removeLaunchAgent(const QString& label, bool)
{
    // Always the user's own agent, whatever the caller asked for.
    removeJob(label, true, true, true);
}

void VLLaunchd::removeJob(const QString& label, bool user, bool launchAgent, bool shouldAuth)
{
    if (!isUsableLabel(label))
        return;
    stopJob(label, user, launchAgent, shouldAuth);
    const QString file = jobFile(label, user, launchAgent);
    if (!QFileInfo::exists(file))
        return;
    if (VLFileManager::removeFile(file, shouldAuth)) {
        ::usleep(500);
        return;
    }
    if (shouldAuth)
        VLAlert::alertSheetWithMessageText(QStringLiteral("Error: Unable to remove LaunchAgent"),
                                           permissionsText(jobFolder(user, launchAgent)), VLAlert::mainWindow());
}

void VLLaunchd::stopJob(const QString& label, bool user, bool launchAgent, bool)
{
    if (label.isEmpty() || !isUsableLabel(label))
        return;
    const sys::JobService service = jobService();
    logIfFailed(service.unload(jobFile(label, user, launchAgent), domainOf(user)));
    logIfFailed(service.remove(label, domainOf(user)));
}
