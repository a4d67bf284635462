#include "CheckReport.h"

namespace discovery {

CheckedBundle& CheckReport::entryFor(const QString& path)
{
    const auto found = indexByPath_.constFind(path);
    if (found != indexByPath_.constEnd())
        return bundles_[*found];
    indexByPath_.insert(path, bundles_.size());
    bundles_.append(CheckedBundle{path, {}, false, {}, std::nullopt});
    return bundles_.last();
}

void CheckReport::recordScanDecision(const QString& path, const CheckVerdict& verdict)
{
    std::lock_guard lock(lock_);
    CheckedBundle& entry = entryFor(path);
    entry.decidedByScan = true;
    entry.verdict = verdict;
}

void CheckReport::recordCheck(const QString& path, const QString& bundleID, const CheckVerdict& verdict,
                              const std::optional<QVariantMap>& offered)
{
    std::lock_guard lock(lock_);
    CheckedBundle& entry = entryFor(path);
    entry.bundleID = bundleID;
    entry.decidedByScan = false;
    entry.verdict = verdict;
    entry.offered = offered;
}

void CheckReport::recordDropped(const QVariantMap& record, const CheckVerdict& verdict)
{
    std::lock_guard lock(lock_);
    for (CheckedBundle& entry : bundles_) {
        if (entry.offered && *entry.offered == record) {
            entry.verdict = verdict;
            entry.offered.reset();
            return;
        }
    }
}

void CheckReport::noteStandaloneApps(const QStringList& bundleIDs, const QString& groupID)
{
    std::lock_guard lock(lock_);
    for (const QString& id : bundleIDs) {
        if (!groupByStandalone_.contains(id))
            groupByStandalone_.insert(id, groupID);
    }
}

QString CheckReport::coveringGroup(const QString& bundleID) const
{
    std::lock_guard lock(lock_);
    return groupByStandalone_.value(bundleID);
}

void CheckReport::setScannedFolders(const QStringList& folders)
{
    std::lock_guard lock(lock_);
    scannedFolders_ = folders;
}

QStringList CheckReport::scannedFolders() const
{
    std::lock_guard lock(lock_);
    return scannedFolders_;
}

void CheckReport::recordSelfCheck(const QString& path, const QString& bundleID, const CheckVerdict& verdict,
                                  const std::optional<QVariantMap>& offered)
{
    std::lock_guard lock(lock_);
    self_ = CheckedBundle{path, bundleID, false, verdict, offered};
}

std::optional<CheckedBundle> CheckReport::selfCheck() const
{
    std::lock_guard lock(lock_);
    return self_;
}

void CheckReport::setSelfUpdatePending()
{
    std::lock_guard lock(lock_);
    selfUpdatePending_ = true;
}

bool CheckReport::selfUpdatePending() const
{
    std::lock_guard lock(lock_);
    return selfUpdatePending_;
}

QList<CheckedBundle> CheckReport::bundles() const
{
    std::lock_guard lock(lock_);
    return bundles_;
}

} // namespace discovery
