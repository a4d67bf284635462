// The disk-image application installer (installSparkleApp): verify (checksum, then signature),
// mount, find the new bundle, make sure the old copy is not running (windowed), move the old
// copy to the Trash, copy the new one into its folder, unmount, clean up and relaunch when
// appropriate.
// Runs on the installation worker thread or on the main thread of -install.

#include "AppController.h"
#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "install/DiskImage.h"
#include "install/DownloadSignature.h"
#include "install/InstallSupport.h"
#include "install/VolumeFilters.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/PrivateFolder.h"
#include "platform/system/ProcessList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/Workspace.h"
#include "shared/VLAuthorization.h"
#include "shared/VLFileManager.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"
#include "shared/VLTaskNotification.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

using install::onMain;
using install::titleOf;

namespace {

QString text(const char* format, const QVariant& a, const QVariant& b = QVariant())
{
    return b.isValid() ? fnd::format(QString::fromUtf8(format), a, b) : fnd::format(QString::fromUtf8(format), a);
}

// Windowed only: while the application to replace runs, a sheet offers Force Quit or Cancel.
// Returns false when the user cancelled (the installation is abandoned, the image stays).
bool waitUntilNotRunning(AppController& c, const UpdateRecord& record, bool& wasRunning)
{
    VLLog::appendLog(QStringLiteral("Checking that app is not running..."));
    const QString bundleID = record.value(record::kBundleId).toString();
    if (!sys::isApplicationRunning(bundleID))
        return true;
    const QString appName = fnd::stringByDeletingPathExtension(fnd::lastPathComponent(record.value(record::kPath).toString()));
    onMain([&] {
        c.setInstallStatus(QStringLiteral("Waiting for application to close..."));
        c.ui().beginInstallPanelSheet(text("%@ is currently running", appName), QStringLiteral("Force Quit"),
                                      QStringLiteral("Cancel"), QStringLiteral("You must close it before continuing."));
    });
    while (sys::isApplicationRunning(bundleID)) {
        install::sleepSeconds(1.0);
        int result = -1;
        onMain([&] { result = c.ui().installPanelSheetResult(); });
        if (result == 1) {
            VLTaskEx::runTask(sys::rooted(QStringLiteral("/usr/bin/killall")), {appName});
            install::sleepSeconds(1.0);
            break;
        }
        if (result >= 0 && result != 1)
            return false;
    }
    onMain([&] {
        c.ui().closeInstallPanelSheet();
        c.setInstallStatus(text("Installing %@...", titleOf(record)));
    });
    wasRunning = true;
    return true;
}

// Moves the installed bundle to the user's Trash; with administrator rights when the
// ordinary way fails, waiting up to 10 seconds for it to go. Folder and name come from the
// path as the platform splits it, so "/Applications/Foo.app/" names Foo.app in /Applications.
void moveOldBundleToTrash(const QString& installed)
{
    VLLog::appendLog(QStringLiteral("Moving old app to Trash..."));
    if (sys::workspace().recycle(fnd::stringByDeletingLastPathComponent(installed), VLLocalPaths::trashDirectory(),
                                 fnd::lastPathComponent(installed)))
        return;
    if (!VLAuthorization::sharedController().authTrashFile(installed, true))
        VLLog::appendLog(QStringLiteral("Unable to move %@ to the Trash."), installed);
    QElapsedTimer waited;
    waited.start();
    while (QFileInfo::exists(installed) && waited.elapsed() < 10000)
        install::sleepSeconds(0.5);
}

// Copies the new bundle into the install folder; with administrator rights when the
// ordinary way fails. false when both failed.
bool copyNewBundle(const QString& volume, const QString& newName, const QString& installFolder)
{
    VLLog::appendLog(QStringLiteral("Copying new app from disk image..."));
    if (sys::workspace().copy(volume, installFolder, newName))
        return true;
    if (!VLAuthorization::sharedController().authCopyFile(fnd::stringByAppendingPathComponent(volume, newName), installFolder))
        return false;
    // The privileged copy returns before its tool is done: give it time to settle.
    install::sleepSeconds(4.0);
    return true;
}

// Removes the downloaded file, and the download folder when nothing else is left in it;
// nothing at all when the folder is not this process's own (PrivateFolder.h).
void removeTempFiles(const QString& downloadFolder, const QString& file)
{
    VLLog::appendLog(QStringLiteral("Removing temp files..."));
    QString refusal;
    if (!sys::isPrivateFolder(downloadFolder, &refusal)) {
        VLLog::appendLog(QStringLiteral("Not removing the download folder: %@"), refusal);
        return;
    }
    QFile::remove(file);
    VLLog::appendLog(QStringLiteral("Removing temp folder..."));
    const QStringList left = install::DiskImage::topLevelNames(downloadFolder);
    if (left.isEmpty() || left == QStringList{QStringLiteral(".DS_Store")}) {
        QFile::remove(downloadFolder + QStringLiteral("/.DS_Store"));
        QDir().rmdir(downloadFolder);
    }
}

// Opens the installed bundle again when it was running, or when the updater was started by
// exactly that application through -checkpath.
void relaunchIfAppropriate(bool wasRunning, const QString& installed)
{
    if (!wasRunning) {
        const QStringList args = QCoreApplication::arguments();
        const qsizetype at = args.indexOf(QStringLiteral("-checkpath"));
        if (at < 0 || at + 1 >= args.size())
            return;
        const QString launcher = args.at(at + 1);
        VLLog::appendLog(QStringLiteral("Software Update was launched by %@ and installed path is %@"), launcher, installed);
        if (launcher != installed)
            return;
    }
    VLLog::appendLog(QStringLiteral("Relaunching application..."));
    if (!sys::workspace().openFile(installed))
        VLLog::appendLog(QStringLiteral("Unable to open %@."), installed);
}

void incrementProgressWindowless(const AppController& c)
{
    if (!c.hasGUI)
        VLTaskNotification::postIncrementProgress();
}

void endProgressIfWindowed(AppController& c)
{
    if (c.hasGUI)
        onMain([&] { c.ui().endProgress(); });
}

void installSparkleAppUnguarded(AppController& c, const UpdateRecord& record)
{
    if (c.updateCancelled) {
        endProgressIfWindowed(c);
        return;
    }
    const QString title = titleOf(record);
    VLLog::appendLog(QStringLiteral("Installing Sparkle app %@..."), title);
    if (c.hasGUI) {
        onMain([&] {
            c.setInstallStatus(text("Installing %@...", title));
            c.startInstallProgress();
        });
    }
    const QString file = install::downloadedFileOf(c.downloadPath, record).value_or(QString());
    if (file.isEmpty() || !QFileInfo::exists(file)) {
        install::reportInstallFailure(c, record, text("Unable to install %@. %@ cannot be found.", title, file),
                                      text("%@ cannot be found.", file));
        return;
    }
    if (!install::verifyDownloadChecksum(c, record, file))
        return;
    // The key of the copy about to be replaced, read before anything touches it.
    if (!install::verifyDownloadSignature(c, record, file, install::publicKeyOfBundle(record.value(record::kPath).toString())))
        return;
    onMain([&] { c.closeAppWithPath(c.downloadPath); });

    VLLog::appendLog(QStringLiteral("Mounting disk image..."));
    const QStringList before = install::DiskImage::volumeNames();
    install::DiskImage::attach(file);
    install::sleepSeconds(1.0);
    incrementProgressWindowless(c);
    VLLog::appendLog(QStringLiteral("Searching for recently mounted disk image..."));
    const std::optional<QString> volume = install::DiskImage::newVolumePath(before, install::DiskImage::volumeNames());
    if (!volume) {
        install::reportInstallFailure(c, record, text("Unable to install %@. Cannot mount disk image.", title),
                                      QStringLiteral("Cannot mount disk image."));
        return;
    }
    if (c.updateCancelled) {
        endProgressIfWindowed(c);
        return;
    }
    VLLog::appendLog(QStringLiteral("Searching for app on mounted volume..."));
    const std::optional<QString> newName =
        install::firstMatching(install::DiskImage::topLevelNames(*volume), &install::isInstallableBundleName);
    if (!newName) {
        install::reportInstallFailure(c, record, text("Unable to install %@. Cannot find executable file on disk image.", title),
                                      QStringLiteral("Cannot find executable file on disk image."));
        return;
    }
    bool wasRunning = false;
    if (c.hasGUI) {
        if (!waitUntilNotRunning(c, record, wasRunning))
            return;
    } else {
        VLTaskNotification::postIncrementProgress();
    }
    const QString installed = record.value(record::kPath).toString();
    if (installed.isEmpty()) {
        install::reportInstallFailure(c, record, text("Unable to install %@. Cannot find application.", title),
                                      QStringLiteral("Cannot find application."));
        return;
    }
    const QString installFolder = fnd::stringByDeletingLastPathComponent(installed);
    moveOldBundleToTrash(installed);
    incrementProgressWindowless(c);
    if (!copyNewBundle(*volume, *newName, installFolder)) {
        install::reportInstallFailure(c, record,
            text("Unable to install %@. Please check you have the necessary permissions to write to %@.", title, installed),
            text("Please check you have the necessary permissions to write to %@.", installed));
        return;
    }
    // This platform keeps no application registry to update; telling the desktop that the
    // bundle changed is the nearest equivalent of registering it.
    VLFileManager::notifyFileSystemChanged(installed);
    VLFileManager::touchFile(installed);
    VLLog::appendLog(QStringLiteral("Unmounting disk image..."));
    install::DiskImage::detach(*volume);
    removeTempFiles(c.downloadPath, file);
    incrementProgressWindowless(c);
    relaunchIfAppropriate(wasRunning, installed);
}

} // namespace

void AppController::installSparkleApp(const UpdateRecord& record)
{
    guard::guarded(hasGUI, "-[AppController installSparkleApp:]", [&] { installSparkleAppUnguarded(*this, record); });
}
