// AppController::checkForUpdatesToSelf: the updater's check for a newer version of itself.
// Runs on the update check's thread under the caller's controller lock; every change to
// dataArray and every interface request is performed on the main thread, waiting.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/CheckVerdict.h"
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

using discovery::CheckVerdict;
using discovery::decide;
namespace why = discovery::why;

const QString kSelfID = QStringLiteral("com.velmora.SoftwareUpdate");

// A self-update in progress runs the updater from the temporary folder, and a copy carried
// inside another application is updated with that application: neither checks itself.
bool refuseSelfCheck(const QString& ownBundlePath, CheckVerdict* reason)
{
    if (ownBundlePath.startsWith(VLLocalPaths::tempDirectory())) {
        VLLog::appendLog(QStringLiteral("Skipping self update check because updater is in the temp folder."));
        decide(reason, why::notChecked(QStringLiteral("the updater runs from the temporary folder, as during its own "
                                                      "update, and does not check itself there")));
        return true;
    }
    if (fnd::stringByDeletingLastPathComponent(ownBundlePath).contains(QLatin1String(".app"))) {
        VLLog::appendLog(QStringLiteral("Skipping self update check because updater is inside another app bundle."));
        decide(reason, why::notChecked(QStringLiteral("the updater lies inside another application's bundle and is "
                                                      "updated with that application")));
        return true;
    }
    return false;
}

// What loading the main feed told: the address and, when it failed, why.
struct MainFeedLoad {
    QString address;
    QString error;
    int httpStatus = 0;
    QString decodeError;
};

std::optional<QVariant> loadMainFeed(AppController& c, MainFeedLoad& load)
{
    UrlResponseInfo response;
    std::optional<QVariant> decoded;
    const std::optional<QString> test = sys::UserDefaults::standard().stringForKey(QStringLiteral("testSelfURL"));
    if (test) {
        VLLog::appendLog(QStringLiteral("Using test URL %@..."), *test);
        load.address = *test;
        decoded = c.dictionaryFromData(c.dataFromURLSync(*test, &response, &load.error), &load.decodeError);
    } else {
        load.address = sys::updateServerBase() + QStringLiteral("/rss/appcasts/com.velmora.SoftwareUpdate.xml");
        VLLog::appendLog(QStringLiteral("Using URL %@..."), load.address);
        const discovery::FetchResult fetched = discovery::fetchURL(load.address);
        if (!fetched.data)
            VLLog::appendLogAndPrint(QStringLiteral("Error loading data: %@"), fetched.errorText());
        response = fetched.response;
        load.error = fetched.errorDescription;
        decoded = c.dictionaryFromData(fetched.data, &load.decodeError);
    }
    load.httpStatus = response.statusCode;
    return decoded;
}

// `address` receives the address loaded.
std::optional<QVariantMap> loadBetaFeed(AppController& c, QString& address)
{
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    if (defaults.integerForKey(QStringLiteral("showBetaUpdates")) != 1)
        return std::nullopt;
    VLLog::appendLog(QStringLiteral("Checking for beta updates to self..."));
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

std::optional<UpdateRecord> AppController::checkForUpdatesToSelf(CheckVerdict* reason)
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
        if (refuseSelfCheck(own.bundlePath(), reason))
            return std::nullopt;
        VLLog::appendLog(QStringLiteral("Beginning self update check..."));
        updateCancelled = false;
        if (hasGUI)
            sys::runOnMainThreadAndWait([&] { ui().startUpdateProgress(); });
        VLLog::appendLog(QStringLiteral("Launching progress dialog..."));
        if (hasGUI)
            sys::runOnMainThreadAndWait([&] { ui().showUpdateProgress(); });

        MainFeedLoad load;
        const std::optional<QVariant> main = loadMainFeed(*this, load);
        if (!main) {
            VLLog::appendLog(QStringLiteral("Unable to load update data from URL."));
            VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to load self update data from URL."));
            decide(reason, why::feedUnreachable(load.address, load.error, load.httpStatus, load.decodeError));
            return std::nullopt;
        }
        QString betaAddress;
        const std::optional<QVariantMap> beta = loadBetaFeed(*this, betaAddress);
        const QString feeds = beta ? load.address + QStringLiteral(" and ") + betaAddress : load.address;
        const discovery::SelfRequest request{own.objectForInfoDictionaryKey(QStringLiteral("CFBundleVersion")),
                                             own.objectForInfoDictionaryKey(QStringLiteral("CFBundleShortVersionString")),
                                             kSelfID};
        const QString system = VLOSDetect::osxVersion();
        const discovery::SelfOutcome outcome =
            discovery::evaluateSelfRelease(discovery::feedDictionary(*main), beta, request, system);
        if (outcome.verdict != discovery::SelfVerdict::Update) {
            decide(reason, outcome.verdict == discovery::SelfVerdict::NeedsNewerOS
                               ? why::needsNewerOS(outcome.requiredOS, system)
                               : why::upToDate(feeds, outcome.newestVersion, outcome.ownVersion));
            return std::nullopt;
        }
        UpdateRecord rec = outcome.record;

        VLLog::appendLog(QStringLiteral("Loading update information into TableView..."));
        if (isSkippedVersion(fnd::integerValue(rec.value(record::kNewVersion))))
            rec.insert(record::kSkipped, true);
        sys::runOnMainThreadAndWait([&] {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            dataArray.clear();
            dataArray.append(rec);
        });
        if (hasGUI) {
            sys::runOnMainThreadAndWait([&] { ui().reloadTableView(); });
            sys::runOnMainThreadAndWait([&] { ui().endProgress(); });
            sys::runOnMainThreadAndWait([&] { updateInstallButtonStatus(); });
            sys::runOnMainThreadAndWait([&] { ui().selectFirstItem(); });
        }
        VLLog::appendLog(QStringLiteral("Successful."));
        decide(reason, why::offered(rec, outcome.betaChosen ? betaAddress : load.address));
        return rec;
    });
}
