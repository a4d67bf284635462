// AppController::updateSparkleFeed: checks one application against its Sparkle appcast.
// Runs on the update queue's worker threads, concurrently with itself and the group check;
// checkedUpdates is read, copied and replaced without a lock of its own (two checks that
// finish together may each keep only their own entry: at most one feed is checked twice).

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/Network.h"
#include "discovery/SparkleFeed.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/Bundle.h"
#include "platform/system/SystemEnvironment.h"
#include "shared/VLLog.h"
#include "shared/VLOSDetect.h"
#include "shared/VLTaskNotification.h"

namespace {

bool alreadyChecked(const QVariantMap& checked, const QString& feed, qint64 version)
{
    const QVariant v = checked.value(feed);
    if (!v.isValid())
        return false;
    const qint64 checkedVersion = fnd::integerValue(v);
    return checkedVersion >= 1 && checkedVersion <= version;
}

// Only feeds on the vendor's own web site are trusted: anything else may have been planted
// by whoever compromised the application.
bool refuseForeignFeed(const QString& feed)
{
    if (feed.startsWith(sys::webSiteBase()))
        return false;
    VLLog::appendLog(QStringLiteral("The feed %@ is not on the %@ domain. Refusing to update because the "
                                    "application may have been compromised."),
                     feed, sys::webSiteDomain());
    return true;
}

std::optional<discovery::SparkleFeed> loadFeed(const QString& feed)
{
    VLLog::fastAppendLog(QStringLiteral("Connecting to feed %@..."), feed);
    const discovery::FetchResult fetched = discovery::fetchURL(feed);
    if (!fetched.data) {
        VLLog::appendLog(QStringLiteral("Error loading %@: %@ %@"), feed, fetched.errorDescription, fetched.errorText());
        return std::nullopt;
    }
    discovery::SparkleFeed parsed = discovery::parseSparkleFeed(*fetched.data);
    if (parsed.status == discovery::SparkleFeed::Status::NotXml) {
        VLLog::appendLog(QStringLiteral("Error loading XML for %@: %@"), feed, parsed.error);
        VLTaskNotification::postTaskErrorString(fnd::format(QStringLiteral("Error getting Sparkle update - %@"), parsed.error));
        return std::nullopt;
    }
    VLLog::fastAppendLog(QStringLiteral("Querying feed..."));
    if (parsed.status == discovery::SparkleFeed::Status::NoItems) {
        VLLog::appendLog(QStringLiteral("No items found."));
        return std::nullopt;
    }
    VLLog::fastAppendLog(QStringLiteral("Querying enclosures..."));
    if (parsed.status == discovery::SparkleFeed::Status::NoEnclosure) {
        VLLog::appendLog(QStringLiteral("No enclosures found."));
        return std::nullopt;
    }
    return parsed;
}

// Steps after the check was recorded: the enclosure, the item's texts and the bundle.
std::optional<UpdateRecord> recordFromFeed(const discovery::SparkleFeed& parsed, const QString& appPath,
                                           qint64 version, const QString& stringVersion)
{
    UpdateRecord rec;
    VLLog::fastAppendLog(QStringLiteral("Querying attributes..."));
    switch (discovery::applyEnclosure(parsed.enclosure, version, stringVersion, VLOSDetect::osxVersion(), rec)) {
    case discovery::EnclosureVerdict::UpToDate: return record::upToDateMarker();
    case discovery::EnclosureVerdict::NeedsNewerOS: return std::nullopt;
    case discovery::EnclosureVerdict::Update: break;
    }
    VLLog::fastAppendLog(QStringLiteral("Getting more info for item..."));
    if (!parsed.children) {
        VLTaskNotification::postTaskErrorString(QStringLiteral("Unable to get information about Sparkle update."));
        VLLog::appendLog(QStringLiteral("Unable to get information about Sparkle update"));
        return std::nullopt;
    }
    discovery::applyItemChildren(*parsed.children, rec);
    const std::optional<sys::Bundle> bundle = sys::Bundle::bundleWithPath(appPath);
    if (!bundle) {
        const QString message = fnd::format(QStringLiteral("Unable to locate bundle for app %@"), appPath);
        VLTaskNotification::postTaskErrorString(message);
        VLLog::appendLog(QStringLiteral("%@"), message);
        return std::nullopt;
    }
    if (const std::optional<QString> id = bundle->bundleIdentifier())
        rec.insert(record::kBundleId, *id);
    rec.insert(record::kPath, appPath);
    rec.insert(record::kSelected, qlonglong(rec.value(record::kManualOnly).toBool() ? 0 : 1));
    rec.insert(record::kType, record::kTypeSparkle);
    VLLog::fastAppendLog(QStringLiteral("Returning data..."));
    return rec;
}

} // namespace

std::optional<UpdateRecord> AppController::updateSparkleFeed(const QString& feedURL, const QString& appPath,
                                                             const QString& bundleID, qint64 version,
                                                             const QString& stringVersion)
{
    return guard::guarded(hasGUI, "-[AppController updateSparkleFeed:forApp:bundleID:version:stringVersion:]",
                          [&]() -> std::optional<UpdateRecord> {
        VLLog::fastAppendLog(QStringLiteral("Checking Sparkle feed for %@ (version %i)..."), appPath, version);
        if (feedURL.isEmpty() || appPath.isEmpty() || version < 1 || bundleID.isEmpty())
            return std::nullopt;
        if (alreadyChecked(checkedUpdates(), feedURL, version))
            return std::nullopt;
        if (skippedBundleIDs().contains(bundleID)) {
            VLLog::appendLog(QStringLiteral("Skipping update check because a group update is available"));
            return std::nullopt;
        }
        // The upgrade happens after the look-up above, so an "http://" feed is looked up
        // under that form but recorded under its "https://" form.
        QString feed = feedURL;
        if (feed.startsWith(QLatin1String("http://")))
            feed = fnd::format(QStringLiteral("https://%@"), feed.mid(7));
        if (refuseForeignFeed(feed))
            return std::nullopt;
        const std::optional<discovery::SparkleFeed> parsed = loadFeed(feed);
        if (!parsed)
            return std::nullopt;
        QVariantMap checked = checkedUpdates();
        checked.insert(feed, version);
        setCheckedUpdates(checked);
        return recordFromFeed(*parsed, appPath, version, stringVersion);
    });
}
