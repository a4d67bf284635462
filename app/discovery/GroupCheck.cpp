// AppController::updateGroup: checks a vendor group against the group appcast (optionally a
// test feed first) and the beta appcast. Runs on the update queue's worker threads while
// the driver holds the lock of dataArray, so group checks never overlap one another.
// checkedUpdates and skippedBundleIDs are replaced whole, read-copy-replace.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/CheckReport.h"
#include "discovery/CheckVerdict.h"
#include "discovery/FeedRules.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/SystemEnvironment.h"
#include "platform/system/UserDefaults.h"
#include "shared/VLLog.h"
#include "shared/VLOSDetect.h"

#include <utility>

namespace {

using discovery::CheckVerdict;
using discovery::decide;
namespace why = discovery::why;

QString groupFeedByGroup(const QString& groupID)
{
    return sys::updateServerBase() + fnd::format(QStringLiteral("/rss/appcasts/%@.xml"), groupID);
}

// Names go into the address as they are: a name that is not valid in a URL makes the
// address invalid, and its load fails.
QString groupFeedByApp(const QString& app, const QString& subapp)
{
    const QString sub = subapp.isEmpty() ? QString() : QStringLiteral("&subapp=") + subapp;
    return sys::updateServerBase() + fnd::format(QStringLiteral("/rss/appcast?app=%@%@&group"), app, sub);
}

} // namespace

// The beta appcast: a keyed archive whose root object is a dictionary. Bytes that are not
// such an archive make the unarchiver raise, which ends the check by its exception path.
// `address` receives the address loaded.
static std::optional<QVariantMap> loadGroupBeta(AppController& c, const QString& groupID, QString& address)
{
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    if (const std::optional<QString> testBeta = defaults.stringForKey(QStringLiteral("testBetaURL"))) {
        const std::optional<QString> test = defaults.stringForKey(QStringLiteral("testURL"));
        VLLog::appendLog(QStringLiteral("Checking test beta feed %@..."), test ? QVariant(*test) : QVariant());
        address = *testBeta;
    } else {
        address = sys::updateServerBase() + fnd::format(QStringLiteral("/rss/appcasts/%@.beta.xml"), groupID);
        VLLog::appendLog(QStringLiteral("Checking feed %@..."), address);
    }
    VLLog::appendLog(QStringLiteral("Connecting to beta URL..."));
    const std::optional<QByteArray> data = c.dataFromURLSync(address);
    (void)c.dictionaryFromData(data);
    std::optional<QVariantMap> beta;
    if (data && !data->isEmpty()) {
        QString error;
        beta = plist::decodeKeyedArchiveDictionary(*data, &error);
        if (!beta)
            throw fnd::PlatformException(QStringLiteral("NSInvalidArgumentException"),
                                         QStringLiteral("*** -[NSKeyedUnarchiver initForReadingWithData:]: "
                                                        "incomprehensible archive (%1)").arg(error));
    }
    if (beta)
        beta->insert(QStringLiteral("beta"), true);
    else
        VLLog::appendLog(QStringLiteral("Unable to load beta appcast."));
    return beta;
}

namespace {

// The feeds a verdict names: the main (or test) feed loaded, and the beta feed when one was.
struct LoadedFeeds {
    QString main;
    QString beta;  // empty when no beta feed was loaded
    QString both() const { return beta.isEmpty() ? main : main + QStringLiteral(" and ") + beta; }
};

// The answer to a release the rules judged, once no fallback feed is left to try.
std::optional<UpdateRecord> answerFor(const discovery::GroupOutcome& outcome, const discovery::GroupRequest& request,
                                      const LoadedFeeds& feeds, const QString& system, CheckVerdict* reason)
{
    switch (outcome.verdict) {
    case discovery::GroupVerdict::NotNewer:
        decide(reason, why::upToDate(feeds.both(), outcome.newestVersion, request.installedVersion));
        return record::upToDateMarker();
    case discovery::GroupVerdict::Successor:
        decide(reason, why::successorGroup(request.groupID, outcome.successorGroup));
        return record::upToDateMarker();
    case discovery::GroupVerdict::NeedsNewerOS:
        decide(reason, why::needsNewerOS(outcome.requiredOS, system));
        return std::nullopt;
    case discovery::GroupVerdict::Ignored:
        decide(reason, why::ignored(request.bundleID, feeds.main));
        return std::nullopt;
    case discovery::GroupVerdict::Update:
        decide(reason, why::offered(outcome.record, outcome.betaChosen ? feeds.beta : feeds.main));
        return outcome.record;
    }
    return std::nullopt;
}

} // namespace

std::optional<UpdateRecord> AppController::updateGroup(const QString& groupID, const QString& app, const QString& subapp,
                                                       qint64 version, const QString& versionString,
                                                       const QString& bundleID, bool forceUpdate, CheckVerdict* reason)
{
    return guard::guarded(hasGUI, "-[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:]",
                          [&]() -> std::optional<UpdateRecord> {
        VLLog::appendLog(QStringLiteral("Checking group feed..."));
        if (groupID.isEmpty() || versionString.isEmpty() || version < 1 || bundleID.isEmpty()) {
            decide(reason, why::incompleteGroupRequest(groupID, version, versionString, bundleID));
            return std::nullopt;
        }
        const qint64 checked = fnd::integerValue(checkedUpdates().value(groupID));
        if (checked >= 1 && checked <= version && !forceUpdate) {
            decide(reason, why::checkedAlready(fnd::format(QStringLiteral("group %@"), groupID), checked));
            return std::nullopt;
        }

        sys::UserDefaults& defaults = sys::UserDefaults::standard();
        QString current;
        std::optional<QString> fallback;
        if (const std::optional<QString> test = defaults.stringForKey(QStringLiteral("testURL"))) {
            VLLog::appendLog(QStringLiteral("Checking test feed %@..."), *test);
            current = *test;
            fallback = groupFeedByGroup(groupID);
        } else {
            current = app.isEmpty() ? groupFeedByGroup(groupID) : groupFeedByApp(app, subapp);
            VLLog::appendLog(QStringLiteral("Checking feed %@"), current);
        }
        const discovery::GroupRequest request{groupID, version, versionString, bundleID, forceUpdate};
        for (;;) {
            VLLog::appendLog(QStringLiteral("Connecting to URL %@..."), current);
            UrlResponseInfo response;
            QString loadError;
            QString decodeError;
            const std::optional<QVariant> loaded =
                dictionaryFromData(dataFromURLSync(current, &response, &loadError), &decodeError);
            if (!loaded) {
                if (fallback) {
                    current = *std::exchange(fallback, std::nullopt);
                    continue;
                }
                VLLog::appendLog(QStringLiteral("Unable to load appcast %@."), current);
                decide(reason, why::feedUnreachable(current, loadError, response.statusCode, decodeError));
                return std::nullopt;
            }
            LoadedFeeds feeds{current, {}};
            const std::optional<QVariantMap> beta = defaults.integerForKey(QStringLiteral("showBetaUpdates")) == 1
                ? loadGroupBeta(*this, groupID, feeds.beta) : std::nullopt;
            if (!beta)
                feeds.beta.clear();
            const QVariantMap main = discovery::feedDictionary(*loaded);
            if (discovery::isDeprecated(main, bundleID)) {
                VLLog::appendLog(QStringLiteral("%@ is deprecated. Skipping..."), bundleID);
                decide(reason, why::deprecated(bundleID, current));
                return std::nullopt;
            }
            QVariantMap checkedNow = checkedUpdates();
            checkedNow.insert(groupID, version);
            setCheckedUpdates(checkedNow);

            const QString system = VLOSDetect::osxVersion();
            const discovery::GroupOutcome outcome = discovery::evaluateGroupRelease(
                main, beta, request, system, [this](const QString& id) { return groupIDExists(id); });
            if (outcome.standaloneApps) {
                setSkippedBundleIDs(skippedBundleIDs() + *outcome.standaloneApps);
                if (checkReport)
                    checkReport->noteStandaloneApps(*outcome.standaloneApps, groupID);
            }
            if (outcome.verdict == discovery::GroupVerdict::NotNewer && fallback) {
                current = *std::exchange(fallback, std::nullopt);
                continue;
            }
            return answerFor(outcome, request, feeds, system, reason);
        }
    });
}
