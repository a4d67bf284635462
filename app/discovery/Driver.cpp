// The update check driver: the full check (checkForUpdatesToAll, checkForUpdates), the
// per-bundle operation of the update queue (checkForUpdatesToApp) and the list helpers.
// The full check runs on a worker thread with a window and on the main thread without one;
// bundle checks run on updateQueue, at most four at once, their group steps one at a time
// through groupChecks; dataArray changes under its lock.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "discovery/CheckReport.h"
#include "discovery/CheckVerdict.h"
#include "discovery/ScanSupport.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/MainThread.h"
#include "shared/VLFileManager.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

#include <QSet>

#include <memory>

namespace {

using discovery::CheckVerdict;
namespace why = discovery::why;

const QString kVendorPrefix = QStringLiteral("com.velmora.");

// The folders a full check scans, in order: applications, both preference-pane folders and
// every media plug-in folder of the local application support.
QStringList foldersToScan()
{
    QStringList folders = {VLLocalPaths::applicationDirectory(false),
                           VLLocalPaths::libraryDirectory(true) + QStringLiteral("/PreferencePanes"),
                           VLLocalPaths::libraryDirectory(false) + QStringLiteral("/PreferencePanes")};
    folders += VLFileManager::filesMatchingWildcardPath(VLLocalPaths::appSupportDirectory(false)
                                                        + QStringLiteral("/Adobe/Common/Plug-ins/*/MediaCore"));
    return folders;
}

// The controller has no group check without an application path; forcing a group that is
// not installed sends it a message it does not implement, as the platform would report it.
[[noreturn]] void raiseUnrecognizedGroupCheck()
{
    throw fnd::PlatformException(
        QStringLiteral("NSInvalidArgumentException"),
        QStringLiteral("-[AppController updateGroup:app:subapp:version:versionString:bundleID:forceUpdate:appPath:]: "
                       "unrecognized selector sent to instance"));
}

// One bundle's check as it goes along; its group step may finish it on another worker.
struct BundleCheck {
    explicit BundleCheck(const QString& bundlePath) : path(bundlePath) {}
    QString path;
    QString bundleID;
    // Stays so only when the check leaves by its exception path (with a window it returns).
    CheckVerdict verdict = why::failed(QStringLiteral("the check ended by an exception, which the log names"));
    std::optional<UpdateRecord> listed;
};

// What a group member's descriptor asks the group check for.
struct GroupMember {
    QString group;
    QString app; // "VLGroupApp", passed as both app and subapp
    int version = 0;
    QString versionString;
};

// Adds a check's record to the list; a record whose title is listed already is dropped.
void listRecord(AppController& c, BundleCheck& check, const std::optional<UpdateRecord>& rec)
{
    if (!rec || record::isUpToDateMarker(*rec))
        return;
    if (c.addObjectToDataArray(*rec))
        check.listed = rec;
    else
        check.verdict = why::duplicate(fnd::format(QStringLiteral("an update titled \"%@\" is listed already"),
                                                   rec->value(record::kTitle)));
}

// The bundle's check up to its group step: a Sparkle check is done here; a group member is
// returned for the group step.
std::optional<GroupMember> checkUpToGroupStep(AppController& c, BundleCheck& check)
{
    const std::optional<QVariantMap> info = plist::readDictionaryFile(check.path + QStringLiteral("/Contents/Info.plist"));
    if (!info) {
        check.verdict = why::notVendorBundle(QStringLiteral("it has no readable Contents/Info.plist"));
        return std::nullopt;
    }
    check.bundleID = info->value(QStringLiteral("CFBundleIdentifier")).toString();
    if (!check.bundleID.startsWith(kVendorPrefix)) {
        check.verdict = why::notVendorBundle(
            fnd::format(QStringLiteral("its identifier \"%@\" does not begin with \"%@\""), check.bundleID, kVendorPrefix));
        return std::nullopt;
    }
    const std::optional<QString> descriptorPath = discovery::scan::descriptorPath(check.path);
    const QVariantMap descriptor = descriptorPath ? discovery::scan::readDescriptor(*descriptorPath) : QVariantMap();
    VLLog::appendLog(QStringLiteral("VL app found - %@..."), check.path);

    const QVariant feed = descriptor.value(QStringLiteral("SUFeedURL"));
    if (feed.typeId() == QMetaType::QString && !feed.toString().isEmpty()) {
        VLLog::appendLog(QStringLiteral("Found Sparkle URL..."));
        const qint64 version = fnd::intValue(info->value(QStringLiteral("CFBundleVersion")));
        const std::optional<UpdateRecord> rec =
            c.updateSparkleFeed(feed.toString(), check.path, check.bundleID, version,
                                info->value(QStringLiteral("CFBundleShortVersionString")).toString(), &check.verdict);
        if (check.verdict.outcome == discovery::CheckOutcome::CoveredByGroup && c.checkReport)
            check.verdict = why::coveredByGroup(check.bundleID, c.checkReport->coveringGroup(check.bundleID));
        listRecord(c, check, rec);
        return std::nullopt;
    }
    const QVariant group = descriptor.value(QStringLiteral("VLGroupID"));
    const int version = fnd::intValue(descriptor.value(QStringLiteral("VLGroupVersion")));
    const QVariant versionString = descriptor.value(QStringLiteral("VLGroupVersionString"));
    VLLog::appendLog(QStringLiteral("App is part of group %@ (%i %@)."), group, version, versionString);
    if (!group.isValid()) {
        check.verdict = why::notChecked(QStringLiteral("its update descriptor names neither a Sparkle feed (SUFeedURL) nor "
                                                       "a group (VLGroupID)"));
        return std::nullopt;
    }
    return GroupMember{group.toString(), descriptor.value(QStringLiteral("VLGroupApp")).toString(), version,
                       versionString.toString()};
}

// The group step: checks the member's group unless a record of it is listed already.
void groupStep(AppController& c, BundleCheck& check, const GroupMember& member)
{
    bool listedAlready = false;
    {
        std::lock_guard<std::recursive_mutex> lock(c.dataArrayLock);
        listedAlready = AppController::isGroup(member.group, c.dataArray);
    }
    if (listedAlready) {
        check.verdict = why::groupListedAlready(member.group);
        return;
    }
    listRecord(c, check,
               c.updateGroup(member.group, member.app, member.app, member.version, member.versionString, check.bundleID,
                             false, &check.verdict));
}

void recordBundleCheck(AppController& c, const BundleCheck& check)
{
    if (c.checkReport)
        c.checkReport->recordCheck(check.path, check.bundleID, check.verdict, check.listed);
}

} // namespace

void AppController::checkForUpdatesToAll()
{
    std::lock_guard<std::recursive_mutex> lock(controllerLock);
    if (!checkForUpdatesToSelf())
        checkForUpdates(std::nullopt);
}

void AppController::checkForUpdates(const std::optional<QStringList>& forcedIDs)
{
    guard::guarded(hasGUI, "-[AppController checkForUpdates:]", [&] {
        VLLog::appendLog(QStringLiteral("Beginning update check..."));
        sys::runOnMainThreadAndWait([&] {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            dataArray.clear();
            if (hasGUI)
                ui().reloadTableView();
        });
        const QStringList forced = forcedIDs.value_or(QStringList());
        setCheckedUpdates({});
        setSkippedBundleIDs({});
        updateCancelled = false;
        if (hasGUI) {
            sys::runOnMainThreadAndWait([&] { ui().startUpdateProgress(); });
            VLLog::appendLog(QStringLiteral("Launching progress dialog..."));
            sys::runOnMainThreadAndWait([&] { ui().showUpdateProgress(); });
        }

        VLLog::appendLog(QStringLiteral("Populating VL apps list..."));
        QStringList bundles;
        QSet<QString> installedGroups;
        const QStringList folders = foldersToScan();
        if (checkReport)
            checkReport->setScannedFolders(folders);
        for (const QString& folder : folders) {
            std::optional<QStringList> groups;
            if (const std::optional<QStringList> found = VLAppsInFolder(folder, &groups))
                bundles += *found;
            if (groups)
                installedGroups.unite(QSet<QString>(groups->begin(), groups->end()));
        }
        updateQueue.setMaxThreadCount(4);
        for (const QString& bundle : bundles)
            updateQueue.start([this, bundle] { checkForUpdatesToApp(bundle); });
        updateQueue.waitForDone();

        for (const QString& id : forced) {
            if (!installedGroups.contains(id))
                raiseUnrecognizedGroupCheck();
        }
        {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            dataArray = uniqueObjectsInArray(dataArray);
        }
        if (!hasGUI)
            return;
        if (!updateCancelled) {
            VLLog::appendLog(QStringLiteral("Loading data into TableView..."));
            sys::runOnMainThreadAndWait([&] {
                ui().reloadTableView();
                updateInstallButtonStatus();
                ui().selectFirstItem();
            });
        }
        sys::runOnMainThreadAndWait([&] { ui().endProgress(); });
        bool empty = false;
        {
            std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
            empty = dataArray.isEmpty();
        }
        if (empty && !updateCancelled) {
            VLLog::appendLog(QStringLiteral("No updates found."));
            sys::runOnMainThreadAndWait(
                [&] { ui().showAlert(QStringLiteral("No updates found"), QStringLiteral("Your software is up-to-date.")); });
        }
    });
}

void AppController::checkForUpdatesToApp(const QString& bundlePath)
{
    auto check = std::make_shared<BundleCheck>(bundlePath);
    const std::optional<GroupMember> member =
        guard::guarded(hasGUI, "-[AppController checkForUpdatesToApp:]", [&] { return checkUpToGroupStep(*this, *check); });
    if (!member) {
        recordBundleCheck(*this, *check);
        return;
    }
    // Group checks run one at a time, so the first member of a group checks it for all its
    // members. A worker that finds another group check running leaves its step to the lane
    // and goes on with the next bundle instead of waiting for it.
    groupChecks.run([this, check, member = *member] {
        guard::guarded(hasGUI, "-[AppController checkForUpdatesToApp:]", [&] { groupStep(*this, *check, member); });
        recordBundleCheck(*this, *check);
    });
}

bool AppController::addObjectToDataArray(const UpdateRecord& rec)
{
    std::lock_guard<std::recursive_mutex> lock(dataArrayLock);
    const QVariant title = rec.value(record::kTitle);
    for (const UpdateRecord& existing : dataArray) {
        const QVariant existingTitle = existing.value(record::kTitle);
        // A missing title equals nothing, not even another missing title.
        if (existingTitle.isValid() && existingTitle == title)
            return false;
    }
    dataArray.append(rec);
    return true;
}

QList<UpdateRecord> AppController::uniqueObjectsInArray(const QList<UpdateRecord>& list)
{
    return guard::guarded(hasGUI, "-[AppController uniqueObjectsInArray:]", [&] {
        const QStringList skipped = skippedBundleIDs();
        QSet<QString> kept;
        QList<UpdateRecord> unique;
        for (const UpdateRecord& rec : list) {
            const QString id = record::identifierOf(rec);
            // Each drop tells the report why, when there is one.
            auto drop = [&](const auto& verdict) {
                if (checkReport)
                    checkReport->recordDropped(rec, verdict());
            };
            if (id.isEmpty()) {
                drop([&] { return why::unidentified(rec); });
                continue;
            }
            if (kept.contains(id)) {
                drop([&] { return why::duplicate(fnd::format(QStringLiteral("another update of %@ is listed already"), id)); });
                continue;
            }
            if (skipped.contains(id)) {
                drop([&] { return why::coveredByGroup(id, checkReport->coveringGroup(id)); });
                continue;
            }
            kept.insert(id);
            unique.append(rec);
        }
        return unique;
    });
}

bool AppController::isGroup(const QString& groupID, const QList<UpdateRecord>& list)
{
    for (const UpdateRecord& rec : list) {
        const QVariant id = rec.value(record::kGroupId);
        if (id.isValid() && id.toString() == groupID)
            return true;
    }
    return false;
}

QStringList AppController::compareExclusiveItems(const QStringList& a, const QStringList& b)
{
    if (a == b)
        return {};
    const bool bIsLonger = b.size() >= a.size();
    const QStringList& longer = bIsLonger ? b : a;
    const QStringList& other = bIsLonger ? a : b;
    QStringList exclusive;
    for (const QString& item : longer) {
        if (!other.contains(item))
            exclusive.append(item);
    }
    return exclusive;
}
