// AppController::updateSparkleFeed: checks one application against its Sparkle appcast.
// Runs on the update queue's worker threads, concurrently with itself and the group check;
// checkedUpdates is read, copied and replaced without a lock of its own (two checks that
// finish together may each keep only their own entry: at most one feed is checked twice).

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/CheckVerdict.h"
#include "discovery/Network.h"
#include "discovery/SparkleFeed.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"
#include "shared/VLOSDetect.h"
#include "shared/VLTaskNotification.h"

namespace {

using discovery::CheckVerdict;
using discovery::decide;
namespace why = discovery::why;

// The build for which the feed was checked already in this run, when that skips this check.
std::optional<qint64> alreadyChecked(const QVariantMap& checked, const QString& feed, qint64 version)
{
    const QVariant v = checked.value(feed);
    if (!v.isValid())
        return std::nullopt;
    const qint64 checkedVersion = fnd::integerValue(v);
    if (checkedVersion >= 1 && checkedVersion <= version)
        return checkedVersion;
    return std::nullopt;
}

// Only feeds on the vendor's own web site are trusted: anything else may have been planted
// by whoever compromised the application.
bool refuseForeignFeed(const QString& feed, CheckVerdict* reason)
{
    if (feed.startsWith(sys::webSiteBase()))
        return false;
    VLLog::appendLog(QStringLiteral("The feed %@ is not on the %@ domain. Refusing to update because the "
                                    "application may have been compromised."),
                     feed, sys::webSiteDomain());
    decide(reason, why::feedRefused(feed, sys::webSiteBase()));
    return true;
}

std::optional<discovery::SparkleFeed> loadFeed(const QString& feed, CheckVerdict* reason)
{
    VLLog::fastAppendLog(QStringLiteral("Connecting to feed %@..."), feed);
    const discovery::FetchResult fetched = discovery::fetchURL(feed);
    const int status = fetched.response.statusCode;
    if (!fetched.data) {
        VLLog::appendLog(QStringLiteral("Error loading %@: %@ %@"), feed, fetched.errorDescription, fetched.errorText());
        decide(reason, why::feedUnreachable(feed, fetched.errorDescription, status));
        return std::nullopt;
    }
    discovery::SparkleFeed parsed = discovery::parseSparkleFeed(*fetched.data);
    if (parsed.status == discovery::SparkleFeed::Status::NotXml) {
        VLLog::appendLog(QStringLiteral("Error loading XML for %@: %@"), feed, parsed.error);
        VLTaskNotification::postTaskErrorString(fnd::format(QStringLiteral("Error getting Sparkle update - %@"), parsed.error));
        decide(reason, why::feedMalformed(feed, QStringLiteral("not XML: ") + parsed.error, status));
        return std::nullopt;
    }
    VLLog::fastAppendLog(QStringLiteral("Querying feed..."));
    if (parsed.status == discovery::SparkleFeed::Status::NoItems) {
        VLLog::appendLog(QStringLiteral("No items found."));
        decide(reason, why::feedMalformed(feed, QStringLiteral("no channel item"), status));
        return std::nullopt;
    }
    VLLog::fastAppendLog(QStringLiteral("Querying enclosures..."));
    if (parsed.status == discovery::SparkleFeed::Status::NoEnclosure) {
        VLLog::appendLog(QStringLiteral("No enclosures found."));
        decide(reason, why::feedMalformed(feed, QStringLiteral("the first item has no enclosure"), status));
        return std::nullopt;
    }
    return parsed;
}

// Steps after the check was recorded: the enclosure, the item's texts and the bundle.
std::optional<UpdateRecord> recordFromFeed(const discovery::SparkleFeed& parsed, const QString& feed,
                                           const QString& appPath, qint64 version, const QString& stringVersion,
                                           CheckVerdict* reason)
{
    UpdateRecord rec;
    VLLog::fastAppendLog(QStringLiteral("Querying attributes..."));
    discovery::EnclosureFacts facts;
    const QString system = VLOSDetect::osxVersion();
    switch (discovery::applyEnclosure(parsed.enclosure, version, stringVersion, system, rec, &facts)) {
    case discovery::EnclosureVerdict::UpToDate:
        decide(reason, why::upToDate(feed, facts.feedVersion, version));
        return record::upToDateMarker();
    case discovery::EnclosureVerdict::NeedsNewerOS:
        decide(reason, why::needsNewerOS(facts.requiredOS, system));
        return std::nullopt;
    case discovery::EnclosureVerdict::Update: break;
    }
    VLLog::fastAppendLog(QStringLiteral("Getting more info for item..."));
    if (!parsed.children) {
        VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to get information about Sparkle update."));
        VLLog::appendLog(QStringLiteral("Unable to get information about Sparkle update"));
        decide(reason, why::failed(QStringLiteral("the feed's first item has no title, link or description")));
        return std::nullopt;
    }
    discovery::applyItemChildren(*parsed.children, rec);
    const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(appPath);
    if (!bundle) {
        const QString message = fnd::format(QStringLiteral("Unable to locate bundle for app %@"), appPath);
        VLTaskNotification::postTaskErrorString(message);
        VLLog::appendLog(QStringLiteral("%@"), message);
        decide(reason, why::failed(fnd::format(QStringLiteral("an update was found, but no bundle is at %@"), appPath)));
        return std::nullopt;
    }
    if (const std::optional<QString> id = bundle->bundleIdentifier())
        rec.insert(record::kBundleId, *id);
    rec.insert(record::kPath, appPath);
    rec.insert(record::kSelected, qlonglong(rec.value(record::kManualOnly).toBool() ? 0 : 1));
    rec.insert(record::kType, record::kTypeSparkle);
    VLLog::fastAppendLog(QStringLiteral("Returning data..."));
    decide(reason, why::offered(rec, feed));
    return rec;
}

} // namespace

std::optional<UpdateRecord> AppController::updateSparkleFeed(const QString& feedURL, const QString& appPath,
                                                             const QString& bundleID, qint64 version,
                                                             const QString& stringVersion, CheckVerdict* reason)
{
    return guard::guarded(hasGUI, "-[AppController updateSparkleFeed:forApp:bundleID:version:stringVersion:]",
                          [&]() -> std::optional<UpdateRecord> {
        VLLog::fastAppendLog(QStringLiteral("Checking Sparkle feed for %@ (version %i)..."), appPath, version);
        if (feedURL.isEmpty() || appPath.isEmpty() || version < 1 || bundleID.isEmpty()) {
            decide(reason, why::incompleteSparkleRequest(feedURL, bundleID, version));
            return std::nullopt;
        }
        if (const std::optional<qint64> checked = alreadyChecked(checkedUpdates(), feedURL, version)) {
            decide(reason, why::checkedAlready(feedURL, *checked));
            return std::nullopt;
        }
        if (skippedBundleIDs().contains(bundleID)) {
            VLLog::appendLog(QStringLiteral("Skipping update check because a group update is available"));
            decide(reason, why::coveredByGroup(bundleID, {}));
            return std::nullopt;
        }
        // The upgrade happens after the look-up above, so an "http://" feed is looked up
        // under that form but recorded under its "https://" form.
        QString feed = feedURL;
        if (feed.startsWith(QLatin1String("http://")))
            feed = fnd::format(QStringLiteral("https://%@"), feed.mid(7));
        if (refuseForeignFeed(feed, reason))
            return std::nullopt;
        const std::optional<discovery::SparkleFeed> parsed = loadFeed(feed, reason);
        if (!parsed)
            return std::nullopt;
        QVariantMap checked = checkedUpdates();
        checked.insert(feed, version);
        setCheckedUpdates(checked);
        return recordFromFeed(*parsed, feed, appPath, version, stringVersion, reason);
    });
}
