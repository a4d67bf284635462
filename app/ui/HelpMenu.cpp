// The Help menu's pages on the vendor's web site, opened in the desktop's browser. Main thread.

#include "AppController.h"

#include "platform/system/Workspace.h"
#include "shared/VLLog.h"
#include "shared/VLSiteLinks.h"

namespace {

const QString kSiteAppName = QStringLiteral("software_update");

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
