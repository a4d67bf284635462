#include "FeedRules.h"

#include "UpdateRecord.h"
#include "platform/foundation/Foundation.h"
#include "platform/foundation/PlatformException.h"
#include "shared/VLLog.h"

namespace discovery {
namespace {

[[noreturn]] void unrecognized(const QVariant& v, const char* selector)
{
    throw fnd::unrecognizedSelector(v, selector);
}

void insertIfPresent(QVariantMap& record, const QString& key, const QVariant& value)
{
    if (value.isValid())
        record.insert(key, value);
}

} // namespace

bool minOSBlocks(const QString& minOS, const QString& systemVersion)
{
    return minOS.size() >= 6 && systemVersion.size() >= 6
        && fnd::compareNumeric(minOS, systemVersion) == fnd::Ordering::Descending;
}

QVariantMap feedDictionary(const QVariant& root)
{
    if (root.typeId() != QMetaType::QVariantMap)
        unrecognized(root, "objectForKey:");
    return root.toMap();
}

int feedIntValue(const QVariant& value)
{
    if (!value.isValid() || value.typeId() == QMetaType::QString || fnd::isNumber(value))
        return fnd::intValue(value);
    unrecognized(value, "intValue");
}

QVariantList feedList(const QVariant& value)
{
    if (!value.isValid())
        return {};
    if (value.typeId() != QMetaType::QVariantList && value.typeId() != QMetaType::QStringList)
        unrecognized(value, "count");
    return value.toList();
}

bool feedStringEquals(const QVariant& value, const QString& text)
{
    if (!value.isValid())
        return false;
    if (value.typeId() != QMetaType::QString)
        unrecognized(value, "isEqualToString:");
    return value.toString() == text;
}

static QString feedMinOS(const QVariantMap& release)
{
    const QVariant v = release.value(QStringLiteral("minOS"));
    if (v.isValid() && v.typeId() != QMetaType::QString)
        unrecognized(v, "length");
    return v.toString();
}

const QVariantMap& chooseRelease(const QVariantMap& main, const std::optional<QVariantMap>& beta)
{
    const int m = feedIntValue(main.value(QStringLiteral("groupVersion")));
    const int b = beta ? feedIntValue(beta->value(QStringLiteral("groupVersion"))) : 0;
    return beta && m < b ? *beta : main;
}

bool isDeprecated(const QVariantMap& main, const QString& bundleID)
{
    return feedList(main.value(QStringLiteral("deprecatedApps"))).contains(QVariant(bundleID));
}

static void fillGroupRecord(const QVariantMap& main, const QVariantMap& e, const GroupRequest& r, QVariantMap& rec)
{
    insertIfPresent(rec, record::kNewVersion, main.value(QStringLiteral("groupVersion")));
    insertIfPresent(rec, record::kNewVersionString, e.value(QStringLiteral("groupVersionString")));
    rec.insert(record::kOldVersion, r.installedVersion);
    rec.insert(record::kOldVersionString, r.installedVersionString);
    insertIfPresent(rec, record::kTitle, e.value(QStringLiteral("title")));
    insertIfPresent(rec, record::kUrl, e.value(QStringLiteral("url")));
    insertIfPresent(rec, record::kPageUrl, e.value(QStringLiteral("pageurl")));
    insertIfPresent(rec, record::kSize, e.value(QStringLiteral("size")));
    insertIfPresent(rec, record::kChangeList, e.value(QStringLiteral("description")));
    insertIfPresent(rec, record::kServerChecksum, e.value(QStringLiteral("checksum")));
    insertIfPresent(rec, record::kGroupId, e.value(QStringLiteral("groupID")));
    rec.insert(record::kBundleId, r.bundleID);
    rec.insert(record::kType, record::kTypeGroup);
}

GroupOutcome evaluateGroupRelease(const QVariantMap& main, const std::optional<QVariantMap>& beta,
                                  const GroupRequest& request, const QString& systemVersion,
                                  const std::function<bool(const QString&)>& groupInstalled)
{
    GroupOutcome out;
    VLLog::appendLog(QStringLiteral("Comparing versions..."));
    const int m = feedIntValue(main.value(QStringLiteral("groupVersion")));
    const int b = beta ? feedIntValue(beta->value(QStringLiteral("groupVersion"))) : 0;
    if (std::max(m, b) <= request.installedVersion && !request.forceUpdate)
        return out;
    const QVariantMap& e = chooseRelease(main, beta);

    // A release that names another, installed group is checked with that group.
    const QVariant releaseGroup = e.value(QStringLiteral("groupID"));
    if (releaseGroup.isValid() && releaseGroup.toString() != request.groupID && groupInstalled(releaseGroup.toString())) {
        out.verdict = GroupVerdict::Successor;
        return out;
    }
    VLLog::appendLog(QStringLiteral("Update found..."));
    const QString minOS = feedMinOS(e);
    if (minOSBlocks(minOS, systemVersion)) {
        VLLog::appendLog(QStringLiteral("Update requires macOS %@"), minOS);
        out.verdict = GroupVerdict::NeedsNewerOS;
        return out;
    }
    fillGroupRecord(main, e, request, out.record);
    const int paidFrom = feedIntValue(e.value(QStringLiteral("paidUpgradeFrom")));
    const bool paid = paidFrom >= 1 && request.installedVersion <= paidFrom;
    if (paid)
        out.record.insert(record::kPaidUpgrade, true);
    const bool manual = feedStringEquals(e.value(QStringLiteral("manualInstallOnly")), QStringLiteral("YES"));
    if (manual)
        VLLog::appendLog(QStringLiteral("Manual only."));
    out.record.insert(record::kManualOnly, manual);
    out.record.insert(record::kSelected, qlonglong(manual ? 0 : 1));

    // A paid group update leaves its stand-alone applications to their own feeds.
    const QVariantList standalone = feedList(e.value(QStringLiteral("standaloneApps")));
    if (!paid && !standalone.isEmpty()) {
        QStringList ids;
        for (const QVariant& id : standalone)
            ids.append(id.toString());
        out.standaloneApps = ids;
    }
    for (const QVariant& ignored : feedList(e.value(QStringLiteral("ignoredApps")))) {
        if (ignored.typeId() != QMetaType::QString)
            unrecognized(ignored, "lowercaseString");
        if (ignored.toString().toLower() == request.bundleID.toLower()) {
            VLLog::appendLog(QStringLiteral("Skipping because %@ is on the ignore list."), request.bundleID);
            out.verdict = GroupVerdict::Ignored;
            return out;
        }
    }
    VLLog::appendLog(QStringLiteral("Returning data..."));
    out.verdict = GroupVerdict::Update;
    return out;
}

std::optional<QVariantMap> evaluateSelfRelease(const QVariantMap& main, const std::optional<QVariantMap>& beta,
                                               const SelfRequest& request, const QString& systemVersion)
{
    const int v = feedIntValue(request.ownVersion);
    const int m = feedIntValue(main.value(QStringLiteral("groupVersion")));
    const int b = beta ? feedIntValue(beta->value(QStringLiteral("groupVersion"))) : 0;
    const QVariantMap& e = chooseRelease(main, beta);
    const int newest = std::max(m, b);
    if (v >= newest) {
        VLLog::fastAppendLog(QStringLiteral("No update found."));
        return std::nullopt;
    }
    VLLog::appendLog(QStringLiteral("Update is available."));
    const QString minOS = feedMinOS(e);
    if (minOSBlocks(minOS, systemVersion)) {
        VLLog::appendLog(QStringLiteral("Update requires macOS %@"), minOS);
        return std::nullopt;
    }
    QVariantMap rec;
    rec.insert(record::kNewVersion, qlonglong(newest));
    insertIfPresent(rec, record::kNewVersionString, e.value(QStringLiteral("groupVersionString")));
    insertIfPresent(rec, record::kOldVersion, request.ownVersion);
    insertIfPresent(rec, record::kOldVersionString, request.ownVersionString);
    rec.insert(record::kTitle, fnd::format(QStringLiteral("Velmora Software Update %@"),
                                           e.value(QStringLiteral("groupVersionString"))));
    insertIfPresent(rec, record::kUrl, e.value(QStringLiteral("url")));
    insertIfPresent(rec, record::kChangeList, e.value(QStringLiteral("description")));
    insertIfPresent(rec, record::kSize, e.value(QStringLiteral("size")));
    insertIfPresent(rec, record::kServerChecksum, e.value(QStringLiteral("checksum")));
    insertIfPresent(rec, record::kEdSignature, e.value(QStringLiteral("edSignature")));
    rec.insert(record::kGroupId, request.bundleID);
    rec.insert(record::kBundleId, request.bundleID);
    rec.insert(record::kType, record::kTypeSelf);
    const bool manual = feedStringEquals(e.value(QStringLiteral("manualInstallOnly")), QStringLiteral("YES"));
    if (manual)
        VLLog::appendLog(QStringLiteral("Manual install only."));
    rec.insert(record::kManualOnly, manual);
    rec.insert(record::kSelected, qlonglong(manual ? 0 : 1));
    return rec;
}

} // namespace discovery
