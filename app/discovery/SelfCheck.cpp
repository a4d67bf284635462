// AppController::checkForUpdatesToSelf: the updater's check for a newer version of itself.
// Runs on the update check's thread under the caller's controller lock; every change to
// dataArray and every interface request is performed on the main thread, waiting.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/FeedRules.h"
#include "discovery/Network.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/MainThread.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"
#include "shared/VLOSDetect.h"
#include "shared/VLTaskNotification.h"

namespace {

const QString kSelfID = QStringLiteral("com.velmora.SoftwareUpdate");

// A self-update in progress runs the updater from the temporary folder, and a copy carried
// inside another application is updated with that application: neither checks itself.
bool refuseSelfCheck(const QString& ownBundlePath)
{
    if (ownBundlePath.startsWith(VLLocalPaths::tempDirectory())) {
        VLLog::appendLog(QStringLiteral("Skipping self update check because updater is in the temp folder."));
        return true;
    }
    if (fnd::stringByDeletingLastPathComponent(ownBundlePath).contains(QLatin1String(".app"))) {
        VLLog::appendLog(QStringLiteral("Skipping self update check because updater is inside another app bundle."));
        return true;
    }
    return false;
}

std::optional<QVariant> loadMainFeed(AppController& c)
{
    const std::optional<QString> test = sys::UserDefaults::standard().stringForKey(QStringLiteral("testSelfURL"));
    if (test) {
        VLLog::appendLog(QStringLiteral("Using test URL %@..."), *test);
        return c.dictionaryFromData(c.dataFromURLSync(*test));
    }
    const QString address = sys::updateServerBase() + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml");
    VLLog::appendLog(QStringLiteral("Using URL %@..."), address);
    const discovery::FetchResult fetched = discovery::fetchURL(address);
    if (!fetched.data)
        VLLog::appendLogAndPrint(QStringLiteral("Error loading data: %@"), fetched.errorText());
    return c.dictionaryFromData(fetched.data);
}

std::optional<QVariantMap> loadBetaFeed(AppController& c)
{
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    if (defaults.integerForKey(QStringLiteral("showBetaUpdates")) != 1)
        return std::nullopt;
    VLLog::appendLog(QStringLiteral("Checking for beta updates to self..."));
    QString address;
    if (const std::optional<QString> test = defaults.stringForKey(QStringLiteral("testSelfBetaURL"))) {
        VLLog::appendLog(QStringLiteral("Using test URL %@..."), *test);
        address = *test;
    } else {
        address = sys::updateServerBase() + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.beta.xml");
        VLLog::appendLog(QStringLiteral("Using URL %@..."), address);
    }
    const std::optional<QVariant> beta = c.dictionaryFromData(c.dataFromURLSync(address));
    if (!beta || beta->typeId() != QMetaType::QVariantMap) {
        VLLog::appendLog(QStringLiteral("Unable to load beta update data from URL."));
        return std::nullopt;
    }
    QVariantMap map = beta->toMap();
    map.insert(QStringLiteral("beta"), true);
    return map;
}

bool isSkippedVersion(qint64 version)
{
    const QVariant skipped = sys::readGlobalPreferences().value(QStringLiteral("skippedVersions"));
    const QVariant entry = skipped.toMap().value(kSelfID);
    return entry.typeId() == QMetaType::QString && entry.toString() == QString::number(version);
}

} // namespace

std::optional<UpdateRecord> AppController::checkForUpdatesToSelf()
{
    return guard::guarded(hasGUI, "-[AppController checkForUpdatesToSelf]", [&]() -> std::optional<UpdateRecord> {
        sys::runOnMainThreadAndWait([&] {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            dataArray.clear();
            if (hasGUI)
                ui().reloadTableView();
        });
        // The main bundle is also the bundle of the controller's code: it is linked in.
        const sys::Bundle own = sys::Bundle::mainBundle();
        if (refuseSelfCheck(own.bundlePath()))
            return std::nullopt;
        VLLog::appendLog(QStringLiteral("Beginning self update check..."));
        updateCancelled = false;
        if (hasGUI)
            sys::runOnMainThreadAndWait([&] { ui().startUpdateProgress(); });
        VLLog::appendLog(QStringLiteral("Launching progress dialog..."));
        if (hasGUI)
            sys::runOnMainThreadAndWait([&] { ui().showUpdateProgress(); });

        const std::optional<QVariant> main = loadMainFeed(*this);
        if (!main) {
            VLLog::appendLog(QStringLiteral("Unable to load update data from URL."));
            VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to load self update data from URL."));
            return std::nullopt;
        }
        const std::optional<QVariantMap> beta = loadBetaFeed(*this);
        const discovery::SelfRequest request{own.objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")),
                                             own.objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString")),
                                             kSelfID};
        std::optional<UpdateRecord> rec = discovery::evaluateSelfRelease(discovery::feedDictionary(*main), beta, request, VLOSDetect::osxVersion());
        if (!rec)
            return std::nullopt;

        VLLog::appendLog(QStringLiteral("Loading update information into TableView..."));
        if (isSkippedVersion(fnd::integerValue(rec->value(record::kNewVersion))))
            rec->insert(record::kSkipped, true);
        sys::runOnMainThreadAndWait([&] {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            dataArray.clear();
            dataArray.append(*rec);
        });
        if (hasGUI) {
            sys::runOnMainThreadAndWait([&] { ui().reloadTableView(); });
            sys::runOnMainThreadAndWait([&] { ui().endProgress(); });
            sys::runOnMainThreadAndWait([&] { updateInstallButtonStatus(); });
            sys::runOnMainThreadAndWait([&] { ui().selectFirstItem(); });
        }
        VLLog::appendLog(QStringLiteral("Successful."));
        return rec;
    });
}
