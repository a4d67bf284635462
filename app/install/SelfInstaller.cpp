// The self-update installer (installSelfUpdate): verify the download's signature when there is
// one to verify, mount the downloaded image, find the new updater on it, start
// SoftwareUpdateHelper with the source, destination and mount paths, and end the updater.
// The helper replaces the bundle, unmounts the image and relaunches.
// Runs on the installation worker thread or on the main thread of -install.

#include "AppController.h"
#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "install/DiskImage.h"
#include "install/DownloadSignature.h"
#include "install/InstallSupport.h"
#include "install/VolumeFilters.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemLog.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLTaskEx.h"
#include "shared/VLTaskNotification.h"

#include <QFileInfo>

using install::onMain;
using install::titleOf;

namespace {

const QString kHelperInAppSupport =
    QStringLiteral("Velmora/Shared Resources/SoftwareUpdateHelper.app/Contents/MacOS/SoftwareUpdateHelper");

// Windowed: an alert panel "Unable to install <title>" with `windowedInfo`; windowless: the
// sentence goes to the system log, the log and the client.
void fail(AppController& c, const UpdateRecord& record, const QString& windowedInfo, const QString& windowlessText)
{
    if (c.hasGUI) {
        onMain([&] { c.ui().alertPanel(fnd::format(QStringLiteral("Unable to install %@"), titleOf(record)), windowedInfo); });
        return;
    }
    sys::nsLogText(windowlessText);
    VLLog::appendLog(QStringLiteral("%@"), windowlessText);
    VLTaskNotification::postTaskErrorString(windowlessText);
}

bool endIfCancelled(AppController& c)
{
    if (!c.updateCancelled)
        return false;
    onMain([&] { c.ui().endProgress(); });
    return true;
}

void installSelfUpdateUnguarded(AppController& c, const UpdateRecord& record)
{
    if (endIfCancelled(c))
        return;
    const QString title = titleOf(record);
    VLLog::appendLog(QStringLiteral("Installing update for self..."));
    if (c.hasGUI) {
        onMain([&] {
            c.setInstallStatus(fnd::format(QStringLiteral("Installing %@..."), title));
            c.startInstallProgress();
        });
    }
    const QString file = install::downloadedFileOf(c.downloadPath, record).value_or(QString());
    if (file.isEmpty() || !QFileInfo::exists(file)) {
        fail(c, record, fnd::format(QStringLiteral("%@ cannot be found."), file),
             fnd::format(QStringLiteral("Unable to install %@ - %@ cannot be found."), title, file));
        return;
    }
    // No checksum is compared for the updater's own update; a signature is, against the key
    // in the running updater's own Info.plist, when the feed and that Info.plist both have one.
    if (!install::verifyDownloadSignature(c, record, file, install::publicKeyOfBundle(sys::Bundle::mainBundle().bundlePath())))
        return;
    VLLog::appendLog(QStringLiteral("Mounting disk image..."));
    const QStringList before = install::DiskImage::volumeNames();
    install::DiskImage::attach(file);
    install::sleepSeconds(1.0);
    VLLog::appendLog(QStringLiteral("Locating mounted volume..."));
    const std::optional<QString> volume = install::DiskImage::newVolumePath(before, install::DiskImage::volumeNames());
    if (!volume) {
        fail(c, record, QStringLiteral("Unable to mount disk image."),
             fnd::format(QStringLiteral("Unable to install %@ - cannot mount disk image."), title));
        return;
    }
    if (!QFileInfo::exists(*volume)) {
        fail(c, record, QStringLiteral("Disk image failed to mount."),
             fnd::format(QStringLiteral("Unable to install %@ - disk image failed to mount."), title));
        return;
    }
    if (!c.hasGUI)
        VLTaskNotification::postIncrementProgress();
    VLLog::appendLog(QStringLiteral("Searching for application on volume..."));
    const std::optional<QString> name =
        install::firstMatching(install::DiskImage::topLevelNames(*volume), &install::isUpdaterApplicationName);
    if (!name) {
        fail(c, record, QStringLiteral("Cannot find application on disk image."),
             fnd::format(QStringLiteral("Unable to install %@ - cannot find application on disk image."), title));
        return;
    }
    VLLog::appendLog(QStringLiteral("Launching installer..."));
    const QString helper = VLLocalPaths::appSupportDirectory(false) + QLatin1Char('/') + kHelperInAppSupport;
    if (!QFileInfo::exists(helper)) {
        fail(c, record, QStringLiteral("The installer is missing important files. Please install this update manually."),
             fnd::format(QStringLiteral("Unable to install %@ - the installer is missing important files. "
                                        "Please install this update manually."), title));
        return;
    }
    if (endIfCancelled(c))
        return;
    sys::UserDefaults::standard().removeObjectForKey(QStringLiteral("testSelfURL"));
    VLLog::appendLog(QStringLiteral("Preparing to exit..."));
    if (!c.hasGUI)
        VLTaskNotification::postIncrementProgress();
    onMain([&] { c.setInstallStatus(QStringLiteral("Relaunching...")); });
    install::sleepSeconds(1.0);
    VLLog::appendLog(QStringLiteral("Hiding window and progress bar..."));
    onMain([&] {
        c.ui().endProgress();
        c.ui().hideApplication();
    });
    VLLog::appendLog(QStringLiteral("Launching helper..."));
    QStringList arguments = {QStringLiteral("-source"), *volume + QLatin1Char('/') + *name,
                             QStringLiteral("-destination"), sys::Bundle::mainBundle().bundlePath(),
                             QStringLiteral("-mountpath"), *volume};
    if (!c.hasGUI)
        arguments << QStringLiteral("-silent") << QStringLiteral("1");
    VLTaskEx::runTaskAndReturn(helper, arguments);
    VLLog::appendLog(QStringLiteral("Exiting..."));
    // The application's normal termination runs on the main thread; the process then ends
    // here, so the pass that called us never goes on with another item.
    if (c.hasGUI)
        onMain([&] { c.ui().terminateApplication(); });
    install::endProcess(0);
}

} // namespace

void AppController::installSelfUpdate(const UpdateRecord& record)
{
    guard::guarded(hasGUI, "-[AppController installSelfUpdate:]", [&] { installSelfUpdateUnguarded(*this, record); });
}
