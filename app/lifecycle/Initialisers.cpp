// The controller's two initialisers, its destruction, and the small state accessors.
// init() is the windowed initialiser (also used by -checkpath, which may continue as the
// windowed application); initWithoutGUI() serves the command-line modes. Only init()
// registers the defaults: a windowless run sees "autoQuit", "showBetaUpdates" and
// "autoUpdateCheck" as 0 unless they are stored, and that is intended.

#include "AppController.h"

#include "install/Download.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLAuthorization.h"
#include "shared/VLBugReporter.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include "platform/foundation/Foundation.h"

namespace {

const QString kDownloadFolderName = QStringLiteral("Velmora Update Temp");
const QString kApplicationName = QStringLiteral("Velmora Software Update");
const QString kTaskLogName = QStringLiteral("Velmora Software Update.task");


QString downloadFolder()
{
    return fnd::stringByAppendingPathComponent(VLLocalPaths::tempDirectory(), kDownloadFolderName);
}

} // namespace

AppController::AppController(bool withGUI, std::unique_ptr<UserInterface> ui)
    : hasGUI(withGUI), ui_(ui ? std::move(ui) : std::make_unique<NullUserInterface>())
{
    updateQueue.setMaxThreadCount(4);
    downloadPath = downloadFolder();
}

std::unique_ptr<AppController> AppController::init(std::unique_ptr<UserInterface> ui)
{
    std::unique_ptr<AppController> controller(new AppController(true, std::move(ui)));
    VLBugReporter::startBugReporter();
    VLLog::createNewLog();
    sys::UserDefaults::standard().registerDefaults({
        {prefs::kAutoQuit, 1},
        {prefs::kShowBetaUpdates, 0},
        {prefs::kAutoUpdateCheck, 1},
    });
    return controller;
}

std::unique_ptr<AppController> AppController::initWithoutGUI()
{
    std::unique_ptr<AppController> controller(new AppController(false, nullptr));
    const QString plistPath = fnd::stringByAppendingPathComponent(VLLocalPaths::prefsDirectory(true), prefs::kOwnPreferencesFileName);
    VLBugReporter::startBugReporter(kApplicationName, plistPath);
    VLLog::createNewLog(kTaskLogName);
    VLAuthorization::sharedController(false);
    controller->updateCancelled = false;
    return controller;
}

AppController::~AppController()
{
    updateQueue.waitForDone();
    if (hasGUI) {
        VLBugReporter::stopBugReporter();
    } else {
        const QString plistPath = fnd::stringByAppendingPathComponent(VLLocalPaths::prefsDirectory(true), prefs::kOwnPreferencesFileName);
        VLBugReporter::stopBugReporter(plistPath);
    }
}

QVariantMap AppController::checkedUpdates() const
{
    std::lock_guard lock(swapLock_);
    return checkedUpdates_;
}

void AppController::setCheckedUpdates(const QVariantMap& value)
{
    std::lock_guard lock(swapLock_);
    checkedUpdates_ = value;
}

QStringList AppController::skippedBundleIDs() const
{
    std::lock_guard lock(swapLock_);
    return skippedBundleIDs_;
}

void AppController::setSkippedBundleIDs(const QStringList& value)
{
    std::lock_guard lock(swapLock_);
    skippedBundleIDs_ = value;
}
