// The Help menu: the vendor web site's pages, opened in the desktop's browser, and the logs of
// the updater and its helper. Main thread; gathering the logs runs on a worker of its own, since
// copying and compressing them is more than interface work.

#include "AppController.h"

#include "platform/system/Workspace.h"
#include "shared/VLLog.h"
#include "shared/VLSiteLinks.h"
#include "shared/VLTroubleshootingUtils.h"

#include <thread>

namespace {

const QString kSiteAppName = QStringLiteral("software_update");
// The logs are named after the executables ("SoftwareUpdate", "SoftwareUpdateHelper"), so the
// menu asks for those names: under the display name "Velmora Software Update" View Log would
// always answer "No log found" and Gather Logs would leave out the updater's logs and its
// preferences, which is what a user asking for them wants least.
QString updaterLogName()
{
    return VLLog::appName();
}
const QString kHelperLogName = QStringLiteral("SoftwareUpdateHelper");

void openInBrowser(const QUrl& page)
{
    if (!sys::workspace().openURL(page.toString()))
        VLLog::appendLog(QStringLiteral("Unable to open %@ in the browser."), page.toString());
}

} // namespace

void AppController::helpReportBug()
{
    openInBrowser(VLSiteLinks::bugReportURLWithAppName(kSiteAppName, std::nullopt));
}

void AppController::helpSuggestFeature()
{
    openInBrowser(VLSiteLinks::featureRequestURLWithAppName(kSiteAppName, std::nullopt));
}

void AppController::helpVLHome()
{
    openInBrowser(VLSiteLinks::velmoraURL());
}

void AppController::viewLog()
{
    VLTroubleshootingUtils::viewLogForApp(updaterLogName());
}

void AppController::viewHelperLog()
{
    VLTroubleshootingUtils::viewLogForApp(kHelperLogName);
}

// The outcome reaches the user as an alert on the main window.
void AppController::gatherLogs()
{
    const QStringList names{updaterLogName(), kHelperLogName};
    std::thread([names] { VLTroubleshootingUtils::gatherLogsForAppsWithNames(names); }).detach();
}
