// The package installer (installGroupApp): verify, close the group's running applications,
// mount, find the installer package, then either run the command-line installer (automatic
// mode, with administrator rights when windowed) or open the package in the interactive
// installer and wait for it (the windowed fallback), and clean up. Runs on the installation
// worker thread or on the main thread of -install.

#include "AppController.h"
#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "install/DiskImage.h"
#include "install/InstallSupport.h"
#include "install/VolumeFilters.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"
#include "platform/system/Workspace.h"
#include "shared/VLAuthorization.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"
#include "shared/VLTaskNotification.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

using install::onMain;
using install::titleOf;

namespace {

// The interactive installer's identifier while it runs.
const QString kInstallerAppID = QStringLiteral("com.apple.installer");
// The two client products whose own package replaces the running client: they get the
// disconnect message and the installer runs on without us.
const QStringList kHandOverGroups = {QStringLiteral("com.velmora.harrowlink"), QStringLiteral("com.velmora.tessel")};

void alert(AppController& c, const UpdateRecord& record, const QString& info)
{
    // Without a window the panel is not seen: the log keeps the reason.
    VLLog::appendLog(QStringLiteral("Unable to install %@ - %@"), titleOf(record), info);
    onMain([&] { c.ui().alertPanel(fnd::format(QStringLiteral("Unable to install %@"), titleOf(record)), info); });
}

void incrementProgressWindowless(const AppController& c)
{
    if (!c.hasGUI)
        VLTaskNotification::postIncrementProgress();
}

bool endIfCancelled(AppController& c)
{
    if (!c.updateCancelled)
        return false;
    onMain([&] { c.ui().endProgress(); });
    return true;
}

// Step 13: unmount, remove the download and the whole temporary folder.
void cleanUp(AppController& c, const QString& volume, const QString& file)
{
    onMain([&] { c.setInstallStatus(QStringLiteral("Cleaning up...")); });
    incrementProgressWindowless(c);
    VLLog::appendLog(QStringLiteral("Unmounting disk image..."));
    install::DiskImage::detach(volume);
    VLLog::appendLog(QStringLiteral("Deleting temp files..."));
    QFile::remove(file);
    VLLog::appendLog(QStringLiteral("Deleting temp directory..."));
    install::removeDownloadFolder(c.downloadPath);
    incrementProgressWindowless(c);
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("testURL"));
}

// Opens the package in the interactive installer and waits while it runs. false when the
// operation ended here (cancelled or the installer could not be opened).
bool installInteractively(AppController& c, const UpdateRecord& record, const QString& package)
{
    if (!sys::workspace().openFile(package)) {
        alert(c, record, fnd::format(QStringLiteral("Unable to launch installer at %@."), package));
        return false;
    }
    VLLog::appendLog(QStringLiteral("Waiting for installer to finish..."));
    QElapsedTimer started;
    started.start();
    while (started.elapsed() < 5000) {
        if (endIfCancelled(c))
            return false;
        install::sleepSeconds(1.0);
    }
    onMain([&] { c.setInstallStatus(fnd::format(QStringLiteral("Waiting for installer to finish for %@..."), titleOf(record))); });
    while (sys::isApplicationRunning(kInstallerAppID)) {
        if (endIfCancelled(c))
            return false;
        install::sleepSeconds(1.0);
    }
    return true;
}

enum class AutoResult { CleanUp, Done };

AutoResult installAutomatically(AppController& c, const UpdateRecord& record, const QString& package,
                                const QString& volume, const QString& file)
{
    const QString installer = sys::rooted(QStringLiteral("/usr/sbin/installer"));
    const QStringList arguments = {QStringLiteral("-pkg"), package, QStringLiteral("-target"), QStringLiteral("/")};
    if (kHandOverGroups.contains(record.value(QStringLiteral("groupID")).toString())) {
        VLTaskNotification::postDisconnect();
        install::sleepSeconds(1.0);
        VLLog::appendLog(QStringLiteral("Running installer with arguments: %@"), arguments);
        VLTaskEx::runTaskAndReturn(installer, arguments);
        return AutoResult::Done;
    }
    VLLog::appendLog(QStringLiteral("Running installer with arguments: %@"), arguments);
    const int code = c.hasGUI ? VLAuthorization::sharedController().authExecTask(installer, arguments, false)
                              : VLTaskEx::terminationCodeFromTask(installer, arguments);
    if (code == 0)
        return AutoResult::CleanUp;
    const QString failure = fnd::format(QStringLiteral("Installation failed with error code %i"), code);
    VLTaskNotification::postTaskErrorString(failure);
    VLLog::appendLogAndPrint(QStringLiteral("%@"), failure);
    VLLog::appendLog(QStringLiteral("Unmounting disk image..."));
    install::DiskImage::detach(volume);
    if (c.hasGUI) {
        c.installGroupApp(record, false);
        return AutoResult::Done;
    }
    VLLog::appendLog(QStringLiteral("Deleting temp files..."));
    QFile::remove(file);
    VLLog::appendLog(QStringLiteral("Deleting temp directory..."));
    install::removeDownloadFolder(c.downloadPath);
    return AutoResult::CleanUp;
}

void installGroupAppUnguarded(AppController& c, const UpdateRecord& record, bool autoInstall)
{
    if (endIfCancelled(c))
        return;
    VLLog::appendLog(QStringLiteral("Installing group app %@..."), titleOf(record));
    onMain([&] {
        c.setInstallStatus(fnd::format(QStringLiteral("Installing %@..."), titleOf(record)));
        c.startInstallProgress();
    });
    const QString file = install::downloadedFileOf(c.downloadPath, record).value_or(QString());
    if (file.isEmpty() || !QFileInfo::exists(file)) {
        alert(c, record, fnd::format(QStringLiteral("%@ cannot be found. The file was not downloaded, possibly due to a "
                                                    "permissions issue, so you are advised to download the software manually."), file));
        return;
    }
    if (!install::verifyDownloadChecksum(c, record, file))
        return;
    onMain([&] { c.closeAppsWithGroupID(record.value(record::kGroupId).toString()); });
    VLLog::appendLog(QStringLiteral("Mounting disk image..."));
    const QStringList before = install::DiskImage::volumeNames();
    install::DiskImage::attach(file);
    if (endIfCancelled(c))
        return;
    incrementProgressWindowless(c);
    install::sleepSeconds(1.0);
    VLLog::appendLog(QStringLiteral("Locating newly mounted volume..."));
    const std::optional<QString> volume = install::DiskImage::newVolumePath(before, install::DiskImage::volumeNames());
    if (!volume) {
        alert(c, record, QStringLiteral("Unable to mount disk image."));
        return;
    }
    if (!QFileInfo::exists(*volume)) {
        alert(c, record, QStringLiteral("Disk image failed to mount."));
        return;
    }
    VLLog::appendLog(QStringLiteral("Searching for package on volume..."));
    const std::optional<QString> name =
        install::firstMatching(install::DiskImage::topLevelNames(*volume), &install::isInstallerPackageName);
    if (!name) {
        alert(c, record, QStringLiteral("Unable to find installer on disk image."));
        return;
    }
    const QString package = *volume + QLatin1Char('/') + *name;
    VLLog::appendLog(QStringLiteral("Launching installer..."));
    incrementProgressWindowless(c);
    if (!autoInstall) {
        if (installInteractively(c, record, package))
            cleanUp(c, *volume, file);
        return;
    }
    if (installAutomatically(c, record, package, *volume, file) == AutoResult::CleanUp)
        cleanUp(c, *volume, file);
}

} // namespace

void AppController::installGroupApp(const UpdateRecord& record, bool autoInstall)
{
    guard::guarded(hasGUI, "-[AppController installGroupApp:autoInstall:]",
                   [&] { installGroupAppUnguarded(*this, record, autoInstall); });
}
