#pragma once
// CheckReport: collects, during one full check, the verdict of every bundle the check looked
// at, keyed by bundle path, so that "-explain" can say why each application is or is not
// offered. The driver, the scan and the run mode write into it at their decision points;
// the checks themselves only fill a CheckVerdict for their caller.
//
// Lifecycle: made by the -explain run, handed to the controller (AppController::checkReport,
// non-owning) for the duration of one check, then read. Thread-safe: the bundle checks of
// the update queue record concurrently.

#include "discovery/CheckVerdict.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <mutex>
#include <optional>

namespace discovery {

struct CheckedBundle {
    QString path;
    QString bundleID;          // empty when the scan decided before reading it
    bool decidedByScan = false; // the scan passed it over: it never reached a check
    CheckVerdict verdict;
    std::optional<QVariantMap> offered; // the record its check added to the list
};

class CheckReport {
public:
    CheckReport() = default;
    CheckReport(const CheckReport&) = delete;
    CheckReport& operator=(const CheckReport&) = delete;

    // The scan passed over the entry at `path` (not a vendor bundle by the scan's rules).
    void recordScanDecision(const QString& path, const CheckVerdict& verdict);
    // The check of the bundle at `path` decided; `offered` is the record it added.
    void recordCheck(const QString& path, const QString& bundleID, const CheckVerdict& verdict,
                     const std::optional<QVariantMap>& offered = std::nullopt);
    // The driver dropped `record` from the list after it was added: the bundle that offered
    // it takes the new verdict. Nothing happens when no bundle offered that record.
    void recordDropped(const QVariantMap& record, const CheckVerdict& verdict);

    // A group update listed `bundleIDs` as its stand-alone applications.
    void noteStandaloneApps(const QStringList& bundleIDs, const QString& groupID);
    // The group whose update listed `bundleID` as stand-alone; empty when none did.
    [[nodiscard]] QString coveringGroup(const QString& bundleID) const;

    // The folders the scan walked, in order.
    void setScannedFolders(const QStringList& folders);
    [[nodiscard]] QStringList scannedFolders() const;

    // The updater's check of itself, kept apart from the bundles: the updater's own bundle
    // may lie in a scanned folder too.
    void recordSelfCheck(const QString& path, const QString& bundleID, const CheckVerdict& verdict,
                         const std::optional<QVariantMap>& offered);
    [[nodiscard]] std::optional<CheckedBundle> selfCheck() const;
    // A pending update of the updater itself replaced the check of everything else.
    void setSelfUpdatePending();
    [[nodiscard]] bool selfUpdatePending() const;

    // Every bundle recorded, in the order first recorded.
    [[nodiscard]] QList<CheckedBundle> bundles() const;

private:
    mutable std::mutex lock_;
    QList<CheckedBundle> bundles_;
    QMap<QString, qsizetype> indexByPath_;
    QMap<QString, QString> groupByStandalone_;
    QStringList scannedFolders_;
    std::optional<CheckedBundle> self_;
    bool selfUpdatePending_ = false;

    CheckedBundle& entryFor(const QString& path); // lock_ held
};

} // namespace discovery
