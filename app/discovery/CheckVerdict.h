#pragma once
// CheckVerdict: why a check answered as it did. Every decision point of the checks (scan,
// Sparkle check, group check, self check, driver) that ends a check with a record, the
// up-to-date marker or nothing can also fill a verdict: the outcome, one sentence naming the
// rule and its values, and those values typed (`facts`) for machines. The sentence is made
// where the rule decides, by the named constructors below; nothing re-derives a reason
// afterwards. Callers that do not ask (a null verdict pointer) pay nothing but the check.
//
// Plain values; any thread. The outcome names are an external format ("-explain").

#include <QString>
#include <QVariantMap>

#include <utility>

namespace discovery {

enum class CheckOutcome {
    Offered,          // listed; installed when ticked
    PaidUpgrade,      // listed; installing asks to confirm the purchase
    ManualOnly,       // listed, but it cannot be ticked: the vendor installs it by hand only
    SkippedByUser,    // listed, marked skipped: the user chose to skip this version
    UpToDate,         // nothing newer than the installed build
    NeedsNewerOS,     // the release requires a newer system than the running one
    Deprecated,       // the group feed no longer serves this application
    Ignored,          // the group release is not offered for this application
    CoveredByGroup,   // a group update lists it as a stand-alone application
    SuccessorGroup,   // the release belongs to another installed group, checked there
    FeedUnreachable,  // the feed could not be loaded
    FeedMalformed,    // the feed was loaded but could not be used
    FeedRefused,      // the feed address is not on the vendor's web site
    NotVendorBundle,  // not one of the vendor's bundles
    CheckedAlready,   // its feed or group was checked already in this run
    Duplicate,        // its update duplicates one already listed
    NotChecked,       // the check did not look at it (see the reason)
    NotFound,         // -explain was asked about something the check did not find
    Failed,           // an update was found but its record could not be completed
};

// The outcome as printed: "offered", "paid-upgrade", ..., "failed".
[[nodiscard]] QString outcomeName(CheckOutcome outcome);

struct CheckVerdict {
    CheckOutcome outcome = CheckOutcome::NotChecked;
    QString reason;     // one sentence, no final point
    QVariantMap facts;  // the rule's values: feed, httpStatus, error, feedVersion, ...
};

// Fills *why when asked; for one-line use at a decision point.
inline void decide(CheckVerdict* why, CheckVerdict verdict)
{
    if (why)
        *why = std::move(verdict);
}

// The verdicts, one per rule. `feed` is the address the check loaded (or refused).
namespace why {

[[nodiscard]] CheckVerdict offered(const QVariantMap& record, const QString& feed);
[[nodiscard]] CheckVerdict upToDate(const QString& feed, qint64 feedVersion, qint64 installedVersion);
[[nodiscard]] CheckVerdict needsNewerOS(const QString& requiredOS, const QString& runningOS);
[[nodiscard]] CheckVerdict deprecated(const QString& bundleID, const QString& feed);
[[nodiscard]] CheckVerdict ignored(const QString& bundleID, const QString& feed);
[[nodiscard]] CheckVerdict successorGroup(const QString& groupID, const QString& successor);
// A group update listed `bundleID` as stand-alone (`groupID` empty when not known).
[[nodiscard]] CheckVerdict coveredByGroup(const QString& bundleID, const QString& groupID);
// `error` is the loading error, or empty when the server answered (then `httpStatus`) with
// a body that could not be decoded (`decodeError`).
[[nodiscard]] CheckVerdict feedUnreachable(const QString& feed, const QString& error, int httpStatus,
                                           const QString& decodeError = {});
[[nodiscard]] CheckVerdict feedMalformed(const QString& feed, const QString& problem, int httpStatus);
[[nodiscard]] CheckVerdict feedRefused(const QString& feed, const QString& requiredBase);
// `what` is what was checked already: a feed address or a group identifier.
[[nodiscard]] CheckVerdict checkedAlready(const QString& what, qint64 checkedVersion);
// Another member of the group found the group's update first.
[[nodiscard]] CheckVerdict groupListedAlready(const QString& groupID);
// The update has no identifier (group records take the feed's groupID), so the list drops it.
[[nodiscard]] CheckVerdict unidentified(const QVariantMap& record);
// The check's arguments fall short (no build number, no feed, no group data).
[[nodiscard]] CheckVerdict incompleteSparkleRequest(const QString& feed, const QString& bundleID, qint64 version);
[[nodiscard]] CheckVerdict incompleteGroupRequest(const QString& groupID, qint64 version, const QString& versionString,
                                                  const QString& bundleID);
[[nodiscard]] CheckVerdict notVendorBundle(const QString& problem);
[[nodiscard]] CheckVerdict notChecked(const QString& problem);
[[nodiscard]] CheckVerdict duplicate(const QString& problem);
[[nodiscard]] CheckVerdict failed(const QString& problem);

} // namespace why

} // namespace discovery
