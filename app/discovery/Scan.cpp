// AppController::VLAppsInFolder, groupIDsInFolder and groupIDExists: the installed-app scans.
// They run on the update check's thread (never the main thread) and take no locks;
// updateCancelled is polled before every folder entry.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "discovery/CheckReport.h"
#include "discovery/CheckVerdict.h"
#include "discovery/ScanSupport.h"
#include "platform/foundation/Foundation.h"
#include "platform/plist/PropertyList.h"
#include "platform/system/Workspace.h"
#include "shared/VLLocalPaths.h"
#include "shared/VLLog.h"

namespace {

const QString kSymlinkLoop = QStringLiteral("Warning: Symbolic link links back to itself.");

// Folders without an extension that the desktop does not show as one item are descended
// into; everything else (packages, "X.localized") is looked at as a possible bundle.
bool isDescendable(const QString& entry)
{
    return fnd::pathExtension(entry).isEmpty() && !sys::workspace().isPackage(entry);
}

QString joinPath(const QString& folder, const QString& name)
{
    return fnd::stringByAppendingPathComponent(folder, name);
}

// The destination of the folder when it is a symbolic link. A sub-folder that its parent's
// listing showed to be no link is not asked again.
std::optional<QString> linkOf(const QString& folder, bool knownNotLink)
{
    return knownNotLink ? std::nullopt : discovery::scan::linkDestination(folder);
}

std::optional<QStringList> appsInFolder(AppController& c, const QString& folder, std::optional<QStringList>* bundleIDs,
                                        bool knownNotLink);
std::optional<QStringList> groupsInFolder(AppController& c, const QString& folder, bool knownNotLink);

} // namespace

std::optional<QStringList> AppController::VLAppsInFolder(const QString& folder, std::optional<QStringList>* bundleIDs)
{
    return appsInFolder(*this, folder, bundleIDs, false);
}

std::optional<QStringList> AppController::groupIDsInFolder(const QString& folder)
{
    return groupsInFolder(*this, folder, false);
}

bool AppController::groupIDExists(const QString& groupID)
{
    const std::optional<QStringList> groups = groupIDsInFolder(VLLocalPaths::applicationDirectory(false));
    return groups && groups->contains(groupID);
}

namespace {

// VLAppsInFolder, told whether the folder is known to be no link.
std::optional<QStringList> appsInFolder(AppController& c, const QString& folder, std::optional<QStringList>* bundleIDs,
                                        bool knownNotLink)
{
    auto scan = [&]() -> std::optional<QStringList> {
        VLLog::fastAppendLog(QStringLiteral("Scanning folder: %@"), folder);
        QStringList groups;
        const std::optional<QString> link = linkOf(folder, knownNotLink);
        if (link && folder.startsWith(*link)) {
            VLLog::appendLog(kSymlinkLoop);
            return std::nullopt;
        }
        const discovery::scan::CycleGuard cycle(folder, link.has_value());
        if (!cycle.entered()) {
            VLLog::appendLog(kSymlinkLoop);
            return std::nullopt;
        }
        const std::optional<QList<discovery::scan::FolderEntry>> entries = discovery::scan::listFolder(folder);
        if (!entries)
            return std::nullopt;
        QStringList bundles;
        // Tells the report why the scan passes over an entry, when there is one.
        auto passOver = [&](const QString& entry, const char* problem) {
            if (c.checkReport)
                c.checkReport->recordScanDecision(entry, discovery::why::notVendorBundle(QString::fromUtf8(problem)));
        };
        for (const discovery::scan::FolderEntry& listed : *entries) {
            if (c.updateCancelled)
                return std::nullopt;
            const QString entry = joinPath(folder, listed.name);
            if (AppController::isFileBlacklisted(entry)) {
                passOver(entry, "the scan passes over entries with this name (its name filter)");
                continue;
            }
            if (!discovery::scan::isExistingFolder(listed, entry)) {
                passOver(entry, "it is not a folder, so not a bundle");
                continue;
            }
            if (isDescendable(entry)) {
                std::optional<QStringList> subGroups = QStringList();
                if (const std::optional<QStringList> found =
                        appsInFolder(c, entry, &subGroups, discovery::scan::isKnownNotLink(listed)))
                    bundles += *found;
                if (subGroups)
                    groups += *subGroups;
                continue;
            }
            const std::optional<QString> descriptor = discovery::scan::descriptorPath(entry);
            if (!descriptor) {
                passOver(entry, "it has no update descriptor (Contents/Resources/VLUpdates.plist or "
                                "Contents/VLUpdates.plist)");
                continue;
            }
            if (bundleIDs) {
                const QVariant group = discovery::scan::readDescriptor(*descriptor).value(QStringLiteral("VLGroupID"));
                if (group.isValid())
                    groups.append(group.toString());
            }
            bundles.append(entry);
        }
        if (bundleIDs)
            *bundleIDs = groups;
        return bundles;
    };
    std::optional<QStringList> result = guard::guarded(c.hasGUI, "-[AppController VLAppsInFolder:bundleIDs:]", scan);
    if (!result && bundleIDs)
        *bundleIDs = std::nullopt;
    return result;
}

// groupIDsInFolder, told whether the folder is known to be no link.
std::optional<QStringList> groupsInFolder(AppController& c, const QString& folder, bool knownNotLink)
{
    auto scan = [&]() -> std::optional<QStringList> {
        const std::optional<QString> link = linkOf(folder, knownNotLink);
        if (link && link->startsWith(VLLocalPaths::applicationDirectory(false))) {
            VLLog::appendLog(kSymlinkLoop);
            return std::nullopt;
        }
        const discovery::scan::CycleGuard cycle(folder, link.has_value());
        if (!cycle.entered()) {
            VLLog::appendLog(kSymlinkLoop);
            return std::nullopt;
        }
        const std::optional<QList<discovery::scan::FolderEntry>> entries = discovery::scan::listFolder(folder);
        if (!entries)
            return std::nullopt;
        QStringList groups;
        for (const discovery::scan::FolderEntry& listed : *entries) {
            if (c.updateCancelled)
                return std::nullopt;
            const QString entry = joinPath(folder, listed.name);
            if (AppController::isFileBlacklisted(entry) || !discovery::scan::isExistingFolder(listed, entry))
                continue;
            if (isDescendable(entry)) {
                if (const std::optional<QStringList> found = groupsInFolder(c, entry, discovery::scan::isKnownNotLink(listed)))
                    groups += *found;
                continue;
            }
            const std::optional<QString> descriptorPath = discovery::scan::descriptorPath(entry);
            if (!descriptorPath)
                continue;
            const std::optional<QVariantMap> info =
                plist::readDictionaryFile(entry + QStringLiteral("/Contents/Info.plist"));
            if (!info || !info->value(QStringLiteral("CFBundleIdentifier")).toString().startsWith(QStringLiteral("com.velmora.")))
                continue;
            const QVariantMap descriptor = discovery::scan::readDescriptor(*descriptorPath);
            VLLog::appendLog(QStringLiteral("VL app found - %@..."), entry);
            if (!descriptor.value(QStringLiteral("SUFeedURL")).toString().isEmpty())
                continue;
            const QVariant group = descriptor.value(QStringLiteral("VLGroupID"));
            VLLog::appendLog(QStringLiteral("App is part of group %@."), group);
            if (group.isValid())
                groups.append(group.toString());
        }
        return groups;
    };
    return guard::guarded(c.hasGUI, "-[AppController groupIDsInFolder:]", scan);
}

} // namespace
