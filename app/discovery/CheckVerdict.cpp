#include "CheckVerdict.h"

#include "UpdateRecord.h"
#include "platform/foundation/Format.h"
#include "platform/foundation/Foundation.h"

namespace discovery {

QString outcomeName(CheckOutcome outcome)
{
    switch (outcome) {
    case CheckOutcome::Offered: return QStringLiteral("offered");
    case CheckOutcome::PaidUpgrade: return QStringLiteral("paid-upgrade");
    case CheckOutcome::ManualOnly: return QStringLiteral("manual-only");
    case CheckOutcome::SkippedByUser: return QStringLiteral("skipped-by-user");
    case CheckOutcome::UpToDate: return QStringLiteral("up-to-date");
    case CheckOutcome::NeedsNewerOS: return QStringLiteral("needs-newer-os");
    case CheckOutcome::Deprecated: return QStringLiteral("deprecated");
    case CheckOutcome::Ignored: return QStringLiteral("ignored");
    case CheckOutcome::CoveredByGroup: return QStringLiteral("covered-by-group");
    case CheckOutcome::SuccessorGroup: return QStringLiteral("successor-group");
    case CheckOutcome::FeedUnreachable: return QStringLiteral("feed-unreachable");
    case CheckOutcome::FeedMalformed: return QStringLiteral("feed-malformed");
    case CheckOutcome::FeedRefused: return QStringLiteral("feed-refused");
    case CheckOutcome::NotVendorBundle: return QStringLiteral("not-vendor-bundle");
    case CheckOutcome::CheckedAlready: return QStringLiteral("checked-already");
    case CheckOutcome::Duplicate: return QStringLiteral("duplicate");
    case CheckOutcome::NotChecked: return QStringLiteral("not-checked");
    case CheckOutcome::NotFound: return QStringLiteral("not-found");
    case CheckOutcome::Failed: return QStringLiteral("failed");
    }
    return QStringLiteral("not-checked");
}

namespace why {
namespace {

// "1.3 (build 130)", or the build alone when there is no display version.
QString versionText(const QVariant& display, const QVariant& build)
{
    const QString shown = display.isValid() ? fnd::stringValue(display) : QString();
    const QString number = build.isValid() ? fnd::stringValue(build) : QStringLiteral("?");
    return shown.isEmpty() ? fnd::format(QStringLiteral("build %@"), number)
                           : fnd::format(QStringLiteral("%@ (build %@)"), shown, number);
}

// " (HTTP status 404)" when the server answered.
QString statusText(int httpStatus)
{
    return httpStatus > 0 ? fnd::format(QStringLiteral(" (HTTP status %i)"), httpStatus) : QString();
}

QVariantMap feedFacts(const QString& feed, int httpStatus)
{
    QVariantMap facts{{QStringLiteral("feed"), feed}};
    if (httpStatus > 0)
        facts.insert(QStringLiteral("httpStatus"), httpStatus);
    return facts;
}

} // namespace

CheckVerdict offered(const QVariantMap& record, const QString& feed)
{
    const bool paid = fnd::boolValue(record.value(record::kPaidUpgrade));
    const bool manual = fnd::boolValue(record.value(record::kManualOnly));
    const bool skipped = fnd::boolValue(record.value(record::kSkipped));
    QString reason = fnd::format(QStringLiteral("\"%@\", %@, from %@; installed %@"), record.value(record::kTitle),
                                 versionText(record.value(record::kNewVersionString), record.value(record::kNewVersion)),
                                 feed,
                                 versionText(record.value(record::kOldVersionString), record.value(record::kOldVersion)));
    CheckOutcome outcome = CheckOutcome::Offered;
    if (paid) {
        outcome = CheckOutcome::PaidUpgrade;
        reason += QStringLiteral("; a paid upgrade from the installed version, so installing asks to confirm it");
    }
    if (manual) {
        outcome = CheckOutcome::ManualOnly;
        reason += QStringLiteral("; marked for manual installation only, so it cannot be ticked for installation");
    }
    if (skipped) {
        outcome = CheckOutcome::SkippedByUser;
        reason += QStringLiteral("; listed, but marked skipped: the user chose to skip this version (skippedVersions)");
    }
    QVariantMap facts{{QStringLiteral("feed"), feed}};
    for (const QString& key : {record::kType, record::kTitle, record::kNewVersion, record::kOldVersion}) {
        if (record.contains(key))
            facts.insert(key, record.value(key));
    }
    return {outcome, reason, facts};
}

CheckVerdict upToDate(const QString& feed, qint64 feedVersion, qint64 installedVersion)
{
    return {CheckOutcome::UpToDate,
            fnd::format(QStringLiteral("the newest build %lld in %@ is not newer than the installed build %lld"),
                        feedVersion, feed, installedVersion),
            {{QStringLiteral("feed"), feed},
             {QStringLiteral("feedVersion"), feedVersion},
             {QStringLiteral("installedVersion"), installedVersion}}};
}

CheckVerdict needsNewerOS(const QString& requiredOS, const QString& runningOS)
{
    return {CheckOutcome::NeedsNewerOS,
            fnd::format(QStringLiteral("the update requires macOS %@; this system runs %@"), requiredOS, runningOS),
            {{QStringLiteral("requiredOS"), requiredOS}, {QStringLiteral("runningOS"), runningOS}}};
}

CheckVerdict deprecated(const QString& bundleID, const QString& feed)
{
    return {CheckOutcome::Deprecated,
            fnd::format(QStringLiteral("%@ is listed in deprecatedApps of %@"), bundleID, feed),
            {{QStringLiteral("feed"), feed}}};
}

CheckVerdict ignored(const QString& bundleID, const QString& feed)
{
    return {CheckOutcome::Ignored,
            fnd::format(QStringLiteral("%@ is listed in ignoredApps of the release in %@"), bundleID, feed),
            {{QStringLiteral("feed"), feed}}};
}

CheckVerdict successorGroup(const QString& groupID, const QString& successor)
{
    return {CheckOutcome::SuccessorGroup,
            fnd::format(QStringLiteral("the release of group %@ belongs to group %@, which is installed and checked "
                                       "on its own"),
                        groupID, successor),
            {{QStringLiteral("group"), groupID}, {QStringLiteral("successorGroup"), successor}}};
}

CheckVerdict coveredByGroup(const QString& bundleID, const QString& groupID)
{
    const QString by = groupID.isEmpty() ? QStringLiteral("a group update")
                                         : fnd::format(QStringLiteral("the update of group %@"), groupID);
    CheckVerdict verdict{CheckOutcome::CoveredByGroup,
                         fnd::format(QStringLiteral("%@ lists %@ as a stand-alone application it covers"), by, bundleID),
                         {}};
    if (!groupID.isEmpty())
        verdict.facts.insert(QStringLiteral("group"), groupID);
    return verdict;
}

CheckVerdict feedUnreachable(const QString& feed, const QString& error, int httpStatus, const QString& decodeError)
{
    QVariantMap facts = feedFacts(feed, httpStatus);
    QString reason;
    if (!error.isEmpty()) {
        facts.insert(QStringLiteral("error"), error);
        reason = fnd::format(QStringLiteral("%@ could not be loaded: %@%@"), feed, error, statusText(httpStatus));
    } else {
        facts.insert(QStringLiteral("error"), decodeError);
        reason = fnd::format(QStringLiteral("%@ could not be loaded: the answer%@ is not a property list (%@)"), feed,
                             statusText(httpStatus), decodeError);
    }
    return {CheckOutcome::FeedUnreachable, reason, facts};
}

CheckVerdict feedMalformed(const QString& feed, const QString& problem, int httpStatus)
{
    QVariantMap facts = feedFacts(feed, httpStatus);
    facts.insert(QStringLiteral("error"), problem);
    return {CheckOutcome::FeedMalformed,
            fnd::format(QStringLiteral("the feed %@%@ cannot be used: %@"), feed, statusText(httpStatus), problem), facts};
}

CheckVerdict feedRefused(const QString& feed, const QString& requiredBase)
{
    return {CheckOutcome::FeedRefused,
            fnd::format(QStringLiteral("the feed %@ is not on the vendor's web site %@, so it is not trusted"), feed,
                        requiredBase),
            {{QStringLiteral("feed"), feed}}};
}

CheckVerdict checkedAlready(const QString& what, qint64 checkedVersion)
{
    return {CheckOutcome::CheckedAlready,
            fnd::format(QStringLiteral("%@ was checked already in this run, for installed build %lld"), what,
                        checkedVersion),
            {{QStringLiteral("checked"), what}, {QStringLiteral("checkedVersion"), checkedVersion}}};
}

CheckVerdict groupListedAlready(const QString& groupID)
{
    return {CheckOutcome::CheckedAlready,
            fnd::format(QStringLiteral("group %@ was checked already in this run for another of its applications, "
                                       "whose update is listed"),
                        groupID),
            {{QStringLiteral("group"), groupID}}};
}

CheckVerdict unidentified(const QVariantMap& record)
{
    return {CheckOutcome::FeedMalformed,
            fnd::format(QStringLiteral("the update \"%@\" has no identifier (a group update takes the feed's "
                                       "groupID), so the list drops it"),
                        record.value(record::kTitle)),
            {}};
}

CheckVerdict incompleteSparkleRequest(const QString& feed, const QString& bundleID, qint64 version)
{
    return {CheckOutcome::NotChecked,
            fnd::format(QStringLiteral("the Sparkle check needs a feed address, a bundle identifier and a build number "
                                       "(CFBundleVersion) of at least 1; it got feed \"%@\", identifier \"%@\", build %lld"),
                        feed, bundleID, version),
            {{QStringLiteral("feed"), feed}, {QStringLiteral("installedVersion"), version}}};
}

CheckVerdict incompleteGroupRequest(const QString& groupID, qint64 version, const QString& versionString,
                                    const QString& bundleID)
{
    return {CheckOutcome::NotChecked,
            fnd::format(QStringLiteral("the group check needs a group identifier, a version (VLGroupVersion) of at least 1, "
                                       "a version string and a bundle identifier; it got group \"%@\", version %lld "
                                       "\"%@\", identifier \"%@\""),
                        groupID, version, versionString, bundleID),
            {{QStringLiteral("group"), groupID}, {QStringLiteral("installedVersion"), version}}};
}

CheckVerdict notVendorBundle(const QString& problem)
{
    return {CheckOutcome::NotVendorBundle, problem, {}};
}

CheckVerdict notChecked(const QString& problem)
{
    return {CheckOutcome::NotChecked, problem, {}};
}

CheckVerdict duplicate(const QString& problem)
{
    return {CheckOutcome::Duplicate, problem, {}};
}

CheckVerdict failed(const QString& problem)
{
    return {CheckOutcome::Failed, problem, {}};
}

} // namespace why
} // namespace discovery
