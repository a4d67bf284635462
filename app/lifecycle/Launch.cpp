// The windowed application's launch, on the main thread once its event loop runs.
//
//  1. A copy that lies inside another application or bundle refuses to run: an alert says so,
//     the scheduled job is removed and the application quits.
//  2. A copy in the temporary folder is not the permanent installation and never installs
//     the scheduled job; any other copy installs it when "autoUpdateCheck" is 1.
//  3. With "checkpath" set: the single-update prompt for the record handed over in
//     "updateGroupDict" (read and removed), or for a new check of that application. Every
//     failure, an up-to-date application and a skipped version end the application silently.
//  4. Otherwise the main window and the full check on a detached thread.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "lifecycle/CheckApplication.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include <QFileInfo>

#include <thread>

namespace {

bool liesInsideAnotherBundle(const QString& bundlePath)
{
    const QString container = QFileInfo(bundlePath).path().toLower();
    return container.contains(QStringLiteral(".app")) || container.contains(QStringLiteral(".bundle"));
}

// The record the prompt shows: the one handed over, else a new check of `checkPath`.
std::optional<UpdateRecord> recordToOffer(AppController& controller, const QString& checkPath)
{
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    const std::optional<QVariantMap> handedOver = defaults.dictionaryForKey(prefs::kUpdateGroupDict);
    defaults.removeObjectForKey(prefs::kUpdateGroupDict);
    if (handedOver)
        return *handedOver;
    const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(checkPath);
    if (!bundle || !bundle->bundleIdentifier().value_or(QString()).startsWith(runmodes::kVendorPrefix)
        || !bundle->hasInfoDictionary())
        return std::nullopt;
    return runmodes::checkApplication(controller, checkPath, *bundle);
}

bool isSkippedVersion(const UpdateRecord& record, const QVariantMap& globalPreferences)
{
    const QVariant groupID = record.value(record::kGroupId);
    const QString identifier = groupID.isValid() ? groupID.toString() : record.value(record::kBundleId).toString();
    const QVariant skipped = globalPreferences.value(prefs::kSkippedVersions).toMap().value(identifier);
    return skipped.typeId() == QMetaType::QString
        && skipped.toString() == fnd::stringValue(record.value(record::kNewVersion));
}

// Step 3; false when the application is to end instead.
bool showSingleUpdatePrompt(AppController& controller, const QString& checkPath)
{
    const std::optional<UpdateRecord> offered = recordToOffer(controller, checkPath);
    if (!offered || record::isUpToDateMarker(*offered))
        return false;
    const QVariantMap global = sys::readGlobalPreferences();
    if (isSkippedVersion(*offered, global))
        return false;
    controller.ui().setUpdateCheckAtStartup(prefs::checkAtStartupEnabled(global));
    {
        std::lock_guard lock(controller.dataArrayLock);
        controller.dataArray = {*offered};
    }
    controller.ui().setUpdateInfoLabel(
        fnd::format(QStringLiteral("%@ (%i) is available. Currently installed version is %@ (%i)."),
                    offered->value(record::kTitle), fnd::intValue(offered->value(record::kNewVersion)),
                    offered->value(record::kOldVersionString), fnd::intValue(offered->value(record::kOldVersion))));
    controller.setHTMLString(QStringLiteral("<div style=\"font-family:Helvetica;margin:10px;\">%1</div>")
                                 .arg(offered->value(record::kChangeList).toString()),
                             UserInterface::NotesView::Update);
    controller.ui().showUpdateWindow();
    controller.showDockIcon();
    VLLog::appendLog(QStringLiteral("Showing the update window for %@..."), offered->value(record::kTitle));
    return true;
}

void launchNormally(AppController& controller)
{
    VLLog::createNewLog();
    controller.loadPreferenceSettings();
    controller.setWebViewHTMLString(QString());
    controller.ui().showMainWindow();
    controller.showDockIcon();
    std::thread([&controller] { controller.checkForUpdatesToAll(); }).detach();
}

} // namespace

void AppController::applicationDidFinishLaunching()
{
    guard::guarded(hasGUI, "-[AppController applicationDidFinishLaunching:]", [&] {
        const QString bundlePath = sys::Bundle::mainBundle().bundlePath();
        VLLog::appendLog(QStringLiteral("Bundle path: %@"), bundlePath);
        if (liesInsideAnotherBundle(bundlePath)) {
            ui().alertPanel(QStringLiteral("Unable to launch application"),
                            QStringLiteral("This application should be launched by the Check for Updates link only."));
            stopAutoUpdateCheckJob();
            ui().terminateApplication();
            return;
        }
        isPermanentInstaller = !bundlePath.startsWith(VLLocalPaths::tempDirectory());
        if (isPermanentInstaller && sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck) == 1)
            startAutoUpdateCheckJob();

        if (const std::optional<QString> checkPath = sys::UserDefaults::standard().stringForKey(prefs::kCheckPath)) {
            if (!showSingleUpdatePrompt(*this, *checkPath))
                ui().terminateApplication();
            return;
        }
        launchNormally(*this);
    });
}
